// The point-to-point solver against independent truth: series and parallel reductions by hand,
// and the dense Laplacian pseudo-inverse on random graphs, ladders, grids and graphs with cut
// vertices and dangling trees. The trimmed, untrimmed, conjugate-gradient and batch paths must
// all agree with it.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "resistance/rp2p_solver.h"
#include "resistance_test_util.h"

using rtest::fromEdges;
using Pairs = std::vector<std::pair<long, long>>;
using Truths = std::vector<std::tuple<long, long, double>>;  // a, b and the resistance

namespace {

// Solves the pairs one by one (trimmed, untrimmed, by conjugate gradients) and all at once in
// both batch paths (by direct factorisation and by conjugate gradients): each answer must be the
// truth.
void expectEveryPath(const RNetwork& net, const Truths& truths) {
    RP2PSolver s;
    s.loadNetwork(net, -1);
    s.trim_threshold = 0;  // trim whatever the size
    std::vector<long> from, to;
    for (auto [a, b, r] : truths) from.push_back(a), to.push_back(b);
    for (int path = 0; path < 6; ++path) {
        s.use_trim = path == 0;
        s.use_cg = path == 2 || path == 4;
        std::vector<double> got(truths.size());
        if (path == 3 || path == 4) s.batchsolveCurrentFirst(from, to, got);
        if (path == 5) s.batchsolve(from, to, got);
        for (size_t i = 0; i < truths.size(); ++i) {
            if (path < 3) got[i] = s.solveP2pResistances(from[i], to[i]);
            const double want = std::get<2>(truths[i]);
            EXPECT_NEAR(got[i], want, (s.use_cg ? 1e-7 : 1e-9) * std::abs(want))
                << "path " << path << ", pair " << from[i] << " " << to[i];
        }
    }
}

Truths byPseudoInverse(const RNetwork& net, const Pairs& pairs) {
    Truths out;
    for (auto [a, b] : pairs) out.emplace_back(a, b, rtest::pseudoInverseResistance(net, a, b));
    return out;
}

}  // namespace

TEST(P2PSolver, SeriesAndParallelByHand) {
    struct Case {
        const char* what;
        RNetwork net;
        long a, b;
        double truth;
    };
    const std::vector<Case> cases = {
        {"path beside a direct resistor: (2 + 3) || 6",
         fromEdges(3, {{0, 1, 2}, {1, 2, 3}, {0, 2, 6}}), 0, 2, 30.0 / 11.0},
        {"balanced bridge: (1 + 2) || (2 + 4)",
         fromEdges(4, {{0, 1, 1}, {0, 2, 2}, {1, 3, 2}, {2, 3, 4}, {1, 2, 7}}), 0, 3, 2.0},
        {"two direct resistors and a path: 4 || 4 || (1 + 1)",
         fromEdges(3, {{0, 2, 4}, {2, 0, 4}, {0, 1, 1}, {1, 2, 1}}), 0, 2, 1.0},
        {"ladder of two rungs: 1 + (2 || (1 + 1 + 1)) + 1",
         fromEdges(6, {{0, 1, 1}, {1, 2, 2}, {2, 3, 1}, {1, 4, 1}, {4, 5, 1}, {5, 2, 1}}), 0, 3,
         2.0 + 6.0 / 5.0},
        {"a floored resistor: 0.0001 counts as 0.001",
         fromEdges(3, {{0, 1, 0.0001}, {1, 2, 1}, {0, 2, 1e9}}), 0, 2, 1.0 / (1.0 / 1.001 + 1e-9)},
        {"a chain is summed: 2 + 4", fromEdges(5, {{0, 1, 1}, {1, 2, 2}, {2, 3, 4}, {3, 4, 8}}), 1,
         3, 6.0},
        {"a ring, nothing to trim: 3 || 3",
         fromEdges(6, {{0, 1, 1}, {1, 2, 1}, {2, 3, 1}, {3, 4, 1}, {4, 5, 1}, {5, 0, 1}}), 0, 3,
         1.5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        expectEveryPath(c.net, {{c.a, c.b, c.truth}, {c.b, c.a, c.truth}});
    }
    // Two nodes and one resistor: its value, not floored.
    RP2PSolver s;
    s.loadNetwork(fromEdges(2, {{0, 1, 0.0004}}), -1);
    EXPECT_DOUBLE_EQ(s.solveP2pResistances(0, 1), 0.0004);
}

TEST(P2PSolver, FailuresGiveMinusOne) {
    // a = b, out of range twice, different pieces; then a pair in each piece (in a batch each
    // piece has its own ground).
    expectEveryPath(fromEdges(5, {{0, 1, 1}, {1, 2, 1}, {3, 4, 1}}),
                    {{1, 1, -1}, {0, 5, -1}, {-1, 2, -1}, {0, 4, -1}, {0, 2, 2.0}, {3, 4, 1.0}});
    // A batch gives as many results as the shorter list has pairs.
    RP2PSolver s;
    std::vector<double> out;
    s.loadNetwork(fromEdges(2, {{0, 1, 1}}), -1);
    s.batchsolveCurrentFirst({0, 1, 0}, {1, 0}, out);
    EXPECT_EQ(out.size(), 2u);
}

TEST(P2PSolver, RandomGraphsLaddersAndGridsAgreeWithThePseudoInverse) {
    std::mt19937 rng(11);
    std::vector<RNetwork> nets;
    for (int k = 0; k < 6; ++k)
        nets.push_back(rtest::randomConnected(5 + rng() % 200, rng() % 300, rng));
    for (int k = 0; k < 2; ++k) nets.push_back(rtest::grid(3 + k * 7, 12, rng, 0.1, 10.0));
    nets.push_back(rtest::grid(60, 2, rng, 0.1, 10.0));  // a ladder: two rails with rungs
    for (const RNetwork& net : nets) {
        Pairs pairs;
        for (int p = 0; p < 8; ++p) {
            const long a = rng() % net.nodeCount();
            pairs.emplace_back(a, (a + 1 + rng() % (net.nodeCount() - 1)) % net.nodeCount());
        }
        SCOPED_TRACE(std::to_string(net.nodeCount()) + " nodes");
        expectEveryPath(net, byPseudoInverse(net, pairs));
    }
}

TEST(P2PSolver, TrimRemovesDanglingTreesAndPiecesBeyondCutVertices) {
    std::mt19937 rng(23);
    // A 6 x 6 grid core; random trees hang off four of its nodes, and a ring off a tree.
    RNetwork net = rtest::grid(6, 6, rng, 0.5, 2.0);
    std::uniform_real_distribution<double> r(0.5, 2.0);
    for (long at : {0L, 7L, 20L, 35L}) {
        std::vector<long> tree{at};
        for (int k = 0; k < 30; ++k) {
            tree.push_back(net.addNode(0, 0, 1));
            net.addResistor(tree[rng() % (tree.size() - 1)], tree.back(), r(rng));
        }
    }
    const long tree_node = net.nodeCount() - 1, r0 = tree_node + 1, r1 = r0 + 1, r2 = r0 + 2;
    for (int k = 0; k < 3; ++k) net.addNode(0, 0, 1);
    for (auto [a, b] : Pairs{{tree_node, r0}, {r0, r1}, {r1, r2}, {r2, r0}})
        net.addResistor(a, b, 1);

    RP2PSolver s;
    s.loadNetwork(net, -1);
    NodeSet kept, core(36);
    std::iota(core.begin(), core.end(), 0L);
    int series = -1;
    // Two core nodes: exactly the core stays.
    ASSERT_EQ(s.trimNodeGraph(8, 27, kept, series), 1);
    EXPECT_EQ(kept, core);
    EXPECT_EQ(series, 0);
    // A core node and a node of the ring: the core, the tree path to the ring, and the ring.
    ASSERT_EQ(s.trimNodeGraph(8, r1, kept, series), 1);
    EXPECT_TRUE(std::includes(kept.begin(), kept.end(), core.begin(), core.end()));
    EXPECT_TRUE(std::binary_search(kept.begin(), kept.end(), r2));
    EXPECT_LT(kept.size(), static_cast<size_t>(net.nodeCount()));
    // Two nodes of one tree: only the tree path between them, a chain.
    ASSERT_EQ(s.trimNodeGraph(tree_node, r0, kept, series), 1);
    EXPECT_EQ(kept, (NodeSet{tree_node, r0}));
    EXPECT_EQ(series, 1);
    expectEveryPath(net, byPseudoInverse(net, {{8, 27}, {8, r1}, {0, tree_node}, {r2, 40}}));
}

TEST(P2PSolver, CurrentNetHoldsThePathsAndNotTheDeadEnds) {
    // 0 - 1 - 2 with a dead end 1 - 3 and a separate piece 4 - 5.
    RNetwork net = fromEdges(6, {{0, 1, 1}, {1, 3, 1}, {1, 2, 1}, {4, 5, 1}});
    RP2PSolver s;
    s.loadNetwork(net, -1);
    NodeSet group;
    s.getNodeGroup(0, 2, group);
    EXPECT_EQ(group, (NodeSet{0, 1, 2}));
    s.getNodeGroup(0, 4, group);  // no path: the whole graph
    EXPECT_EQ(group, s.all_nodes);
    // Loading one labelled group takes only that group's resistors.
    net.checkConnectivity(nullptr);
    RP2PSolver g;
    g.loadNetwork(net, net.groups[4]);
    EXPECT_EQ(g.all_nodes, (NodeSet{4, 5}));
}

TEST(P2PSolver, MillionNodeChainNeedsNoCallStack) {
    const long n = 1000000;
    std::vector<std::tuple<long, long, double>> chain;
    for (long i = 0; i + 1 < n; ++i) chain.emplace_back(i, i + 1, 0.5);
    RP2PSolver s;
    s.loadNetwork(fromEdges(n, chain), -1);
    EXPECT_NEAR(s.solveP2pResistances(0, n - 1), 0.5 * (n - 1), 1e-6);
    EXPECT_NEAR(s.solveP2pResistances(400000, 400010), 5.0, 1e-12);
    EXPECT_EQ(s.findCurrentNet(0, n - 1), 0);
    EXPECT_EQ(static_cast<long>(s.current_net.size()), n);
}
