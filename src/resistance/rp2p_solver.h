#pragma once
// Effective resistance between two nodes of a net's resistor graph. The graph is first cut down
// to the part that can carry current between the two nodes (the blocks on the way from one to
// the other), a plain chain is summed without a matrix, and what remains is solved by a sparse
// LDLT factorisation or by conjugate gradients. Many pairs of one net share one factorisation
// in the batch path. Every search is iterative: paths can be as deep as the net is large.

#include <vector>

#include "resistance/rnetwork.h"

// Ordered node ids without repeats: a sorted vector, as compact as the ids themselves.
using NodeSet = std::vector<long>;

// Every resistor entered in both directions, grouped by node in ascending id order and in
// resistor order within a node: the neighbours of v are at [offsets[v], offsets[v + 1]).
struct RP2PEdges {
    std::vector<long> offsets;
    std::vector<long> to;
    std::vector<double> value;
    std::vector<long> resistor;  // the index of the resistor behind each entry

    long begin(long v) const { return offsets[v]; }
    long end(long v) const { return offsets[v + 1]; }
    bool empty() const { return to.empty(); }
};

// One level of the depth-first stack: a node and the range of its edges still to follow.
struct PathStackRecord {
    long node;
    long next;
    long end;
    long via;  // the resistor that led here, -1 at the root
};

class RP2PSolver {
public:
    RP2PEdges edges;
    NodeSet current_net;
    std::vector<PathStackRecord> path_stack;
    std::vector<int> stack_marks;   // on the stack (1) or finished (2)
    std::vector<int> target_marks;  // reaches the target
    NodeSet all_nodes;              // the nodes that have a resistor
    long n_nodes = 0;
    bool verbose = false;
    double min_resistance = 0.001;
    double cg_tolerance = 1e-12;
    long cg_iter_rate = 3;
    long cg_iter_threshold = 100;
    long cg_iter_limit = 30000;
    int use_cg = 0;
    int use_trim = 1;
    long trim_threshold = 1000;

    // Adds the net's resistors (of one group of it unless `group` is -1; the net's groups must
    // then be labelled) to the graph. Call clear() first for a new net.
    void loadNetwork(const RNetwork& net, int group);
    // Returns the effective resistance between a and b, or -1 when a = b, a node is out of
    // range, the net has fewer than two nodes, or the two are not connected.
    double solveP2pResistances(long a, long b);
    // Returns the resistance between a and b over the resistors among `nodes` (sorted); with
    // `series` set a plain chain is summed. -1 when a or b is not in `nodes` or not connected.
    double solveP2p(long a, long b, const NodeSet& nodes, int series);
    // Fills `nodes` with the part of the graph that carries current from a to b and sets
    // `series` when that part is a plain chain. Returns 1 when it settled on a set (empty when a
    // or b has no resistor), 0 when nothing could be cut and the whole graph is to be used.
    int trimNodeGraph(long a, long b, NodeSet& nodes, int& series);
    // Fills current_net with b and the nodes found on paths from a to b; returns 1 when there is
    // no path or a or b has no resistor, else 0.
    int findCurrentNet(long a, long b);
    // Fills `out` with current_net after findCurrentNet, or with all_nodes when that finds
    // nothing; empty when a or b is out of range.
    void getNodeGroup(long a, long b, NodeSet& out);
    // One factorisation for all pairs: results[i] is the resistance between from[i] and to[i],
    // or -1 as in solveP2pResistances. Gives min(from.size(), to.size()) results.
    void batchsolveCurrentFirst(const std::vector<long>& from, const std::vector<long>& to,
                                std::vector<double>& results);
    // The same contract, with one factorisation per distinct source node.
    void batchsolve(const std::vector<long>& from, const std::vector<long>& to,
                    std::vector<double>& results);
    // Forgets the graph.
    void clear();

private:
    void buildEdges();
    bool hasEdges(long v) const { return v >= 0 && v < n_nodes && edges.begin(v) < edges.end(v); }
    double conductance(double r) const { return 1.0 / std::max(r, min_resistance); }

    // The resistors loaded so far; the edge table is rebuilt from them.
    std::vector<long> res_a_, res_b_;
    std::vector<double> res_r_;
};
