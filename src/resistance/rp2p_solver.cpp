#include "resistance/rp2p_solver.h"

#include <Eigen/IterativeLinearSolvers>
#include <Eigen/OrderingMethods>
#include <Eigen/SparseCholesky>
#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>

#include "runtime/ptimer.h"

namespace {

using SpMat = Eigen::SparseMatrix<double>;
using Ldlt = Eigen::SimplicialLDLT<SpMat, Eigen::Lower, Eigen::AMDOrdering<int>>;
// One triangle for conjugate gradients too: with both, Eigen runs the product on OpenMP threads,
// which gains little for a matrix this sparse and loses much on a busy machine.
using Cg = Eigen::ConjugateGradient<SpMat, Eigen::Lower, Eigen::DiagonalPreconditioner<double>>;

// The iteration cap of the conjugate gradient solver for a matrix of n rows: a budget spread
// over the rows of a large matrix, a number of iterations per row for a small one.
long cgIterationCap(long n, long rate, long threshold, long limit) {
    const long cap = threshold * 1000 < n ? limit * 1000 / std::max(1L, n / 1000) : rate * n;
    return std::max(1L, cap);
}

bool contains(const NodeSet& set, long v) {
    return std::binary_search(set.begin(), set.end(), v);
}

}  // namespace

void RP2PSolver::clear() {
    edges = RP2PEdges();
    current_net.clear();
    path_stack.clear();
    stack_marks.clear();
    target_marks.clear();
    all_nodes.clear();
    n_nodes = 0;
    res_a_.clear();
    res_b_.clear();
    res_r_.clear();
}

void RP2PSolver::loadNetwork(const RNetwork& net, int group) {
    n_nodes = std::max(n_nodes, net.nodeCount());
    const long n = net.nodeCount();
    const bool by_group = group != -1 && net.groups.size() == net.nodes.size();
    for (size_t i = 0; i < net.res_from.size(); ++i) {
        const long a = net.res_from[i], b = net.res_to[i];
        if (a < 0 || b < 0 || a >= n || b >= n) continue;
        if (group != -1 && (!by_group || net.groups[a] != group || net.groups[b] != group))
            continue;
        res_a_.push_back(a);
        res_b_.push_back(b);
        res_r_.push_back(net.res_value[i]);
    }
    buildEdges();
    stack_marks.assign(n_nodes, 0);
    target_marks.assign(n_nodes, 0);
}

void RP2PSolver::buildEdges() {
    const long n = n_nodes;
    edges.offsets.assign(n + 1, 0);
    for (size_t i = 0; i < res_a_.size(); ++i) {
        ++edges.offsets[res_a_[i] + 1];
        ++edges.offsets[res_b_[i] + 1];
    }
    for (long v = 0; v < n; ++v) edges.offsets[v + 1] += edges.offsets[v];
    const long m = edges.offsets[n];
    edges.to.resize(m);
    edges.value.resize(m);
    edges.resistor.resize(m);
    std::vector<long> fill(edges.offsets.begin(), edges.offsets.end() - 1);
    auto enter = [&](long from, long to, size_t i) {
        const long k = fill[from]++;
        edges.to[k] = to;
        edges.value[k] = res_r_[i];
        edges.resistor[k] = static_cast<long>(i);
    };
    for (size_t i = 0; i < res_a_.size(); ++i) {
        enter(res_a_[i], res_b_[i], i);
        enter(res_b_[i], res_a_[i], i);
    }
    all_nodes.clear();
    for (long v = 0; v < n; ++v)
        if (edges.begin(v) < edges.end(v)) all_nodes.push_back(v);
}

double RP2PSolver::solveP2pResistances(long a, long b) {
    current_net.clear();
    if (a < 0 || b < 0 || std::max(a, b) >= n_nodes || a == b || all_nodes.size() < 2) return -1;
    PTimer timer;
    double r;
    const long full = static_cast<long>(all_nodes.size());
    if (use_trim && trim_threshold < full) {
        int series = 0;
        if (trimNodeGraph(a, b, current_net, series)) {
            if (verbose)
                std::cout << "Graph traversal time cost: " << timer.stop()
                          << ", current network contains " << current_net.size()
                          << " nodes(full network " << full << " nodes)." << std::endl;
            timer.reset();
            r = solveP2p(a, b, current_net, series);
        } else {
            if (verbose)
                std::cout << "current network searching failed, will solve full graph matrix ("
                          << full << " nodes) directly." << std::endl;
            timer.reset();
            r = solveP2p(a, b, all_nodes, series);
        }
    } else {
        r = solveP2p(a, b, all_nodes, 0);
    }
    if (verbose)
        std::cout << "P2p Matrix solving time cost: " << timer.stop() << ". " << r << std::endl;
    return r;
}

int RP2PSolver::trimNodeGraph(long a, long b, NodeSet& nodes, int& series) {
    series = 0;
    nodes.clear();
    if (a < 0 || b < 0 || a >= n_nodes || b >= n_nodes || !hasEdges(a) || !hasEdges(b)) return 1;
    // Depth first from a with Tarjan's low links. A child whose subtree reaches no higher than
    // its parent hangs off the parent as its own piece; unless that piece holds the way to b no
    // current enters it, and it is cut off at the parent.
    std::vector<int>& disc = stack_marks;
    std::vector<int>& low = target_marks;
    disc.assign(n_nodes, 0);
    low.assign(n_nodes, 0);
    std::vector<long> parent(n_nodes, -1);
    std::vector<unsigned char> flag(n_nodes, 0);  // 1 path node, 2 root of a cut piece
    enum : unsigned char { kPath = 1, kCut = 2 };
    int counter = 2;
    bool found = false, cut_any = false;
    path_stack.clear();
    disc[a] = low[a] = counter++;
    path_stack.push_back({a, edges.begin(a), edges.end(a), -1});
    if (a == b) found = true;
    while (!path_stack.empty()) {
        PathStackRecord& top = path_stack.back();
        if (top.next < top.end) {
            const long k = top.next++;
            if (edges.resistor[k] == top.via) continue;  // the edge back to the parent
            const long w = edges.to[k];
            const long v = top.node;
            if (disc[w] == 0) {
                disc[w] = low[w] = counter++;
                parent[w] = v;
                path_stack.push_back({w, edges.begin(w), edges.end(w), edges.resistor[k]});
                if (w == b && !found) {
                    found = true;
                    for (const PathStackRecord& r : path_stack) flag[r.node] |= kPath;
                }
            } else {
                low[v] = std::min(low[v], disc[w]);
            }
            continue;
        }
        const long v = top.node;
        path_stack.pop_back();
        if (path_stack.empty()) break;
        const long p = path_stack.back().node;
        low[p] = std::min(low[p], low[v]);
        if (low[v] >= disc[p] && !(flag[v] & kPath)) {
            flag[v] |= kCut;
            cut_any = true;
        }
    }
    // What stays is what a reaches without crossing into a cut piece: every visited node whose
    // chain of parents meets no cut root. Parents are discovered first, so one pass in discovery
    // order settles each node.
    std::vector<long> order(counter - 2);
    for (long v = 0; v < n_nodes; ++v)
        if (disc[v] != 0) order[disc[v] - 2] = v;
    std::vector<unsigned char> kept(n_nodes, 0);
    long kept_count = 0, path_count = 0;
    for (long v : order) {
        kept[v] = !(flag[v] & kCut) && (v == a || kept[parent[v]]);
        kept_count += kept[v];
        path_count += (flag[v] & kPath) ? 1 : 0;
    }
    nodes.reserve(kept_count);
    for (long v = 0; v < n_nodes; ++v)
        if (kept[v]) nodes.push_back(v);
    if (kept_count == path_count) series = 1;
    // Nothing cut and more than a chain: the trim gains nothing, the caller takes the whole
    // graph. (A chain from end to end is still summed rather than solved: solving it would lose
    // digits in the current out of a, whose neighbour's potential is then close to 1.)
    if (!cut_any && !series) {
        nodes.clear();
        stack_marks.assign(n_nodes, 0);
        target_marks.assign(n_nodes, 0);
        return 0;
    }
    stack_marks.assign(n_nodes, 0);
    target_marks.assign(n_nodes, 0);
    return 1;
}

int RP2PSolver::findCurrentNet(long a, long b) {
    current_net.clear();
    if (a < 0 || b < 0 || a >= n_nodes || b >= n_nodes || !hasEdges(a) || !hasEdges(b)) return 1;
    stack_marks.assign(n_nodes, 0);
    target_marks.assign(n_nodes, 0);
    target_marks[b] = 1;
    current_net.push_back(b);
    path_stack.clear();
    path_stack.push_back({a, edges.begin(a), edges.end(a), -1});
    stack_marks[a] = 1;
    // Nodes marked as reaching b form the bottom of the stack, so marking from the top down to
    // the first marked node keeps the search linear.
    auto markStack = [&] {
        for (auto r = path_stack.rbegin(); r != path_stack.rend() && !target_marks[r->node]; ++r) {
            target_marks[r->node] = 1;
            current_net.push_back(r->node);
        }
    };
    if (a == b) markStack();
    while (!path_stack.empty()) {
        PathStackRecord& top = path_stack.back();
        if (top.next >= top.end) {
            stack_marks[top.node] = 2;
            path_stack.pop_back();
            continue;
        }
        const long w = edges.to[top.next++];
        if (target_marks[w]) {
            markStack();
        } else if (stack_marks[w] == 0) {
            stack_marks[w] = 1;
            path_stack.push_back({w, edges.begin(w), edges.end(w), -1});
        }
    }
    std::sort(current_net.begin(), current_net.end());
    if (current_net.size() < 2) {
        current_net.clear();
        return 1;
    }
    return 0;
}

void RP2PSolver::getNodeGroup(long a, long b, NodeSet& out) {
    out.clear();
    if (a < 0 || b < 0 || a >= n_nodes || b >= n_nodes) return;
    out = findCurrentNet(a, b) == 0 ? current_net : all_nodes;
}

double RP2PSolver::solveP2p(long a, long b, const NodeSet& nodes, int series) {
    if (a < 0 || b < 0 || a >= n_nodes || b >= n_nodes) return -1;
    if (!contains(nodes, a) || !contains(nodes, b)) return -1;
    if (nodes.size() == 2) {
        for (long k = edges.begin(a); k < edges.end(a); ++k)
            if (edges.to[k] == b) return edges.value[k];
        return -1;
    }
    // Only the piece of `nodes` that holds a can carry current; a floating piece would make the
    // matrix singular. index: -1 outside the piece, -2 for a and b, else the row.
    std::vector<long> index(n_nodes, -1);
    std::vector<long> piece;
    {
        std::vector<unsigned char> in(n_nodes, 0);
        for (long v : nodes) in[v] = 1;
        index[a] = -2;
        piece.push_back(a);
        for (size_t head = 0; head < piece.size(); ++head) {
            const long v = piece[head];
            for (long k = edges.begin(v); k < edges.end(v); ++k) {
                const long w = edges.to[k];
                if (in[w] && index[w] == -1) {
                    index[w] = -2;
                    piece.push_back(w);
                }
            }
        }
    }
    if (index[b] != -2) return -1;
    std::sort(piece.begin(), piece.end());
    long N = 0;
    for (long v : piece)
        if (v != a && v != b) index[v] = N++;

    long direct = 0, stored = 0;
    double stored_sum = 0;
    std::vector<Eigen::Triplet<double, int>> triplets;
    Eigen::VectorXd rhs = Eigen::VectorXd::Zero(N);
    for (long v : piece) {
        for (long k = edges.begin(v); k < edges.end(v); ++k) {
            const long w = edges.to[k];
            if (w <= v || index[w] == -1) continue;  // each resistor once, from its lower end
            if ((v == a && w == b) || (v == b && w == a)) {
                ++direct;
                continue;
            }
            const double r = std::max(edges.value[k], min_resistance);
            ++stored;
            stored_sum += r;
            if (series) continue;
            const double g = 1.0 / r;
            const long iv = index[v], iw = index[w];
            if (iv >= 0) triplets.emplace_back(iv, iv, g);
            if (iw >= 0) triplets.emplace_back(iw, iw, g);
            if (iv >= 0 && iw >= 0) triplets.emplace_back(std::max(iv, iw), std::min(iv, iw), -g);
            if (v == a && iw >= 0) rhs[iw] += g;  // a is held at potential 1, b at 0
            if (w == a && iv >= 0) rhs[iv] += g;
        }
    }
    if (series && direct + stored == static_cast<long>(piece.size()) - 1) {
        if (verbose) std::cout << "Series network." << std::endl;
        return stored_sum;
    }
    if (series) return solveP2p(a, b, nodes, 0);  // not a chain after all: assemble the matrix

    Eigen::VectorXd x;
    if (N > 0) {
        SpMat L(N, N);
        L.setFromTriplets(triplets.begin(), triplets.end());
        std::vector<Eigen::Triplet<double, int>>().swap(triplets);
        if (use_cg) {
            Cg cg;
            const long cap = cgIterationCap(N, cg_iter_rate, cg_iter_threshold, cg_iter_limit);
            cg.setTolerance(cg_tolerance);
            cg.setMaxIterations(cap);
            cg.compute(L);
            x = cg.solve(rhs);
            if (verbose)
                std::cout << "Iters: " << cg.iterations() << " (iter limit: " << cap
                          << "), error: " << cg.error() << " (tolerance: " << cg_tolerance << ")."
                          << std::endl;
            if (cg.iterations() >= cap && cg.error() > cg_tolerance) return -1;
        } else {
            Ldlt ldlt;
            ldlt.compute(L);
            if (ldlt.info() != Eigen::Success) return -1;
            x = ldlt.solve(rhs);
        }
    }
    double current = 0;
    for (long k = edges.begin(a); k < edges.end(a); ++k) {
        const long w = edges.to[k];
        if (w == a || index[w] == -1) continue;
        const double g = conductance(edges.value[k]);
        current += w == b ? g : g * (1.0 - x[index[w]]);
    }
    if (!(current > 0) || !std::isfinite(current)) return -1;
    return 1.0 / current;
}

namespace {

// The reduced matrix of a grounded graph: rows for every node of `nodes` whose index is >= 0,
// ground nodes (index -1) dropped, each resistor once with the floor applied. Lower triangle.
SpMat groundedMatrix(const RP2PEdges& edges, const NodeSet& nodes, const std::vector<long>& index,
                     long rows, double min_resistance) {
    std::vector<Eigen::Triplet<double, int>> triplets;
    for (long v : nodes) {
        for (long k = edges.begin(v); k < edges.end(v); ++k) {
            const long w = edges.to[k];
            if (w <= v) continue;
            const double g = 1.0 / std::max(edges.value[k], min_resistance);
            const long iv = index[v], iw = index[w];
            if (iv >= 0) triplets.emplace_back(iv, iv, g);
            if (iw >= 0) triplets.emplace_back(iw, iw, g);
            if (iv >= 0 && iw >= 0) triplets.emplace_back(std::max(iv, iw), std::min(iv, iw), -g);
        }
    }
    SpMat L(rows, rows);
    L.setFromTriplets(triplets.begin(), triplets.end());
    return L;
}

// Connected pieces of the graph on `nodes`: piece[v] for each node, -1 for others.
std::vector<int> pieces(const RP2PEdges& edges, const NodeSet& nodes, long n_nodes) {
    std::vector<int> piece(n_nodes, -1);
    std::vector<long> queue;
    int count = 0;
    for (long s : nodes) {
        if (piece[s] >= 0) continue;
        piece[s] = count;
        queue.assign(1, s);
        for (size_t head = 0; head < queue.size(); ++head) {
            const long v = queue[head];
            for (long k = edges.begin(v); k < edges.end(v); ++k)
                if (piece[edges.to[k]] < 0) {
                    piece[edges.to[k]] = count;
                    queue.push_back(edges.to[k]);
                }
        }
        ++count;
    }
    return piece;
}

}  // namespace

void RP2PSolver::batchsolveCurrentFirst(const std::vector<long>& from, const std::vector<long>& to,
                                        std::vector<double>& results) {
    const size_t count = std::min(from.size(), to.size());
    results.assign(count, -1.0);
    if (all_nodes.size() < 2) return;
    // The first node of each connected piece is its ground (one piece in a repaired net);
    // pairs in different pieces have no finite resistance.
    const std::vector<int> piece = pieces(edges, all_nodes, n_nodes);
    std::vector<long> index(n_nodes, -1);
    std::vector<bool> grounded;
    long N = 0;
    for (long v : all_nodes) {
        if (static_cast<size_t>(piece[v]) >= grounded.size()) {
            grounded.push_back(true);  // pieces are numbered in ascending order of first node
            continue;
        }
        index[v] = N++;
    }
    const SpMat L = groundedMatrix(edges, all_nodes, index, N, min_resistance);
    Ldlt ldlt;
    Cg cg;
    const long cap = cgIterationCap(N, cg_iter_rate, cg_iter_threshold, cg_iter_limit);
    if (N > 0) {
        if (use_cg) {
            cg.setTolerance(cg_tolerance);
            cg.setMaxIterations(cap);
            cg.compute(L);
        } else {
            ldlt.compute(L);
            if (ldlt.info() != Eigen::Success) return;
        }
    }
    Eigen::VectorXd rhs = Eigen::VectorXd::Zero(N), x;
    for (size_t i = 0; i < count; ++i) {
        const long a = from[i], b = to[i];
        if (a < 0 || b < 0 || std::max(a, b) >= n_nodes || a == b) continue;
        if (piece[a] < 0 || piece[a] != piece[b]) continue;
        if (index[a] >= 0) rhs[index[a]] = 1.0;
        if (index[b] >= 0) rhs[index[b]] = -1.0;
        if (use_cg) {
            x = cg.solve(rhs);
            if (verbose)
                std::cout << "Iters: " << cg.iterations() << " (iter limit: " << cap
                          << "), error: " << cg.error() << " (tolerance: " << cg_tolerance << ")."
                          << std::endl;
            const bool failed = cg.iterations() >= cap && cg.error() > cg_tolerance;
            if (index[a] >= 0) rhs[index[a]] = 0.0;
            if (index[b] >= 0) rhs[index[b]] = 0.0;
            if (failed) continue;
        } else {
            x = ldlt.solve(rhs);
            if (index[a] >= 0) rhs[index[a]] = 0.0;
            if (index[b] >= 0) rhs[index[b]] = 0.0;
        }
        const double xa = index[a] >= 0 ? x[index[a]] : 0.0;
        const double xb = index[b] >= 0 ? x[index[b]] : 0.0;
        const double r = std::abs(xa - xb);
        if (std::isfinite(r)) results[i] = r;
    }
}

void RP2PSolver::batchsolve(const std::vector<long>& from, const std::vector<long>& to,
                            std::vector<double>& results) {
    const size_t count = std::min(from.size(), to.size());
    results.assign(count, -1.0);
    if (all_nodes.size() < 2) return;
    const std::vector<int> piece = pieces(edges, all_nodes, n_nodes);
    // Group the pairs by source: each source is the ground of its own matrix, and a unit current
    // into the destination raises it to the resistance between the two.
    std::map<long, std::vector<size_t>> by_source;
    for (size_t i = 0; i < count; ++i) {
        const long a = from[i], b = to[i];
        if (a < 0 || b < 0 || std::max(a, b) >= n_nodes || a == b) continue;
        if (piece[a] < 0 || piece[a] != piece[b]) continue;
        by_source[a].push_back(i);
    }
    std::vector<long> index(n_nodes, -1);
    for (const auto& [a, positions] : by_source) {
        NodeSet members;
        for (long v : all_nodes)
            if (piece[v] == piece[a]) members.push_back(v);
        long N = 0;
        for (long v : members) index[v] = v == a ? -1 : N++;
        const SpMat L = groundedMatrix(edges, members, index, N, min_resistance);
        Ldlt ldlt;
        ldlt.compute(L);
        if (ldlt.info() == Eigen::Success) {
            Eigen::VectorXd rhs = Eigen::VectorXd::Zero(N);
            for (size_t i : positions) {
                const long ib = index[to[i]];
                rhs[ib] = 1.0;
                const Eigen::VectorXd x = ldlt.solve(rhs);
                rhs[ib] = 0.0;
                if (std::isfinite(x[ib])) results[i] = x[ib];
            }
        }
        for (long v : members) index[v] = -1;
    }
}
