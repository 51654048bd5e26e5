// The point-to-point solver against independent truth: series and parallel reductions by hand,
// and the dense Laplacian pseudo-inverse on random graphs, ladders, grids and graphs with cut
// vertices and dangling trees. The trimmed, untrimmed, conjugate-gradient and batch paths must
// all agree with it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "resistance/rp2p_solver.h"
#include "resistance_test_util.h"

using ::testing::HasSubstr;

namespace {

RNetwork fromEdges(long n, const std::vector<std::tuple<long, long, double>>& edges) {
    RNetwork net;
    net.name = "t";
    for (long i = 0; i < n; ++i) net.addNode(static_cast<int>(i), 0, 1);
    for (auto [a, b, r] : edges) net.addResistor(a, b, r);
    return net;
}

// Results of every path for one pair.
struct AllPaths {
    double trimmed, untrimmed, cg, batch, batch_by_source;
};

AllPaths solveEveryWay(const RNetwork& net, long a, long b) {
    AllPaths r{};
    RP2PSolver s;
    s.loadNetwork(net, -1);
    s.trim_threshold = 0;  // trim whatever the size
    r.trimmed = s.solveP2pResistances(a, b);
    s.use_trim = 0;
    r.untrimmed = s.solveP2pResistances(a, b);
    s.use_cg = 1;
    r.cg = s.solveP2pResistances(a, b);
    s.use_cg = 0;
    std::vector<double> out;
    s.batchsolveCurrentFirst({a}, {b}, out);
    r.batch = out.at(0);
    s.batchsolve({a}, {b}, out);
    r.batch_by_source = out.at(0);
    return r;
}

void expectAllNear(const AllPaths& got, double truth, double cg_rel = 1e-7) {
    EXPECT_NEAR(got.trimmed, truth, 1e-9 * truth);
    EXPECT_NEAR(got.untrimmed, truth, 1e-9 * truth);
    EXPECT_NEAR(got.batch, truth, 1e-9 * truth);
    EXPECT_NEAR(got.batch_by_source, truth, 1e-9 * truth);
    EXPECT_NEAR(got.cg, truth, cg_rel * truth);
}

// Attaches a tree of `size` nodes to node `at` (a random tree, resistances in [0.5, 2]).
void hangTree(RNetwork& net, long at, int size, std::mt19937& rng) {
    std::uniform_real_distribution<double> r(0.5, 2.0);
    std::vector<long> tree{at};
    for (int k = 0; k < size; ++k) {
        const long v = net.addNode(0, 0, 1);
        net.addResistor(tree[rng() % tree.size()], v, r(rng));
        tree.push_back(v);
    }
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
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        expectAllNear(solveEveryWay(c.net, c.a, c.b), c.truth);
        expectAllNear(solveEveryWay(c.net, c.b, c.a), c.truth);
    }
}

TEST(P2PSolver, TwoNodesGiveTheResistorUnflooredAndAChainIsSummed) {
    RP2PSolver s;
    s.loadNetwork(fromEdges(2, {{0, 1, 0.0004}}), -1);
    s.trim_threshold = 0;
    EXPECT_DOUBLE_EQ(s.solveP2pResistances(0, 1), 0.0004);

    RP2PSolver chain;
    chain.loadNetwork(fromEdges(5, {{0, 1, 1}, {1, 2, 2}, {2, 3, 4}, {3, 4, 8}}), -1);
    chain.trim_threshold = 0;
    chain.verbose = true;
    testing::internal::CaptureStdout();
    const double r = chain.solveP2pResistances(1, 3);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_DOUBLE_EQ(r, 6.0);
    EXPECT_THAT(out, HasSubstr("Series network.\n"));
    EXPECT_THAT(out, HasSubstr("current network contains 3 nodes(full network 5 nodes)."));
}

TEST(P2PSolver, FailuresGiveMinusOne) {
    const RNetwork pieces = fromEdges(5, {{0, 1, 1}, {1, 2, 1}, {3, 4, 1}});
    RP2PSolver s;
    s.loadNetwork(pieces, -1);
    for (int trim : {0, 1}) {
        s.use_trim = trim;
        s.trim_threshold = 0;
        EXPECT_EQ(s.solveP2pResistances(1, 1), -1);   // a = b
        EXPECT_EQ(s.solveP2pResistances(0, 5), -1);   // out of range
        EXPECT_EQ(s.solveP2pResistances(-1, 2), -1);  // out of range
        EXPECT_EQ(s.solveP2pResistances(0, 4), -1);   // different pieces
        EXPECT_NEAR(s.solveP2pResistances(0, 2), 2.0, 1e-12);
    }
    std::vector<double> out;
    s.batchsolveCurrentFirst({0, 0, 3, 2, 9}, {4, 2, 4, 2}, out);
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[0], -1);
    EXPECT_NEAR(out[1], 2.0, 1e-12);
    EXPECT_NEAR(out[2], 1.0, 1e-12);  // the second piece has its own ground
    EXPECT_EQ(out[3], -1);
    RP2PSolver single;
    single.loadNetwork(fromEdges(1, {}), -1);
    single.batchsolveCurrentFirst({0}, {0}, out);
    EXPECT_EQ(out, std::vector<double>{-1});
    EXPECT_EQ(single.solveP2pResistances(0, 0), -1);
}

TEST(P2PSolver, RandomGraphsLaddersAndGridsAgreeWithThePseudoInverse) {
    std::mt19937 rng(11);
    std::vector<RNetwork> nets;
    for (int k = 0; k < 6; ++k)
        nets.push_back(rtest::randomConnected(5 + rng() % 200, rng() % 300, rng));
    for (int k = 0; k < 2; ++k) nets.push_back(rtest::grid("g", 3 + k * 7, 12, rng, 0.1, 10.0));
    {
        RNetwork ladder;  // two rails with rungs
        std::uniform_real_distribution<double> r(0.1, 10);
        for (int i = 0; i < 60; ++i) ladder.addNode(i, 0, 1), ladder.addNode(i, 1, 1);
        for (int i = 0; i < 60; ++i) {
            ladder.addResistor(2 * i, 2 * i + 1, r(rng));
            if (i + 1 < 60) {
                ladder.addResistor(2 * i, 2 * i + 2, r(rng));
                ladder.addResistor(2 * i + 1, 2 * i + 3, r(rng));
            }
        }
        nets.push_back(ladder);
    }
    for (const RNetwork& net : nets) {
        for (int p = 0; p < 3; ++p) {
            const long a = rng() % net.nodeCount();
            long b = rng() % net.nodeCount();
            if (a == b) b = (a + 1) % net.nodeCount();
            SCOPED_TRACE(std::to_string(net.nodeCount()) + " nodes, pair " + std::to_string(a) +
                         " " + std::to_string(b));
            expectAllNear(solveEveryWay(net, a, b), rtest::pseudoInverseResistance(net, a, b));
        }
    }
}

TEST(P2PSolver, TrimRemovesDanglingTreesAndPiecesBeyondCutVertices) {
    std::mt19937 rng(23);
    // A 6 x 6 grid core; trees hang off four of its nodes, and a ring hangs off a tree.
    RNetwork net = rtest::grid("core", 6, 6, rng, 0.5, 2.0);
    for (long at : {0L, 7L, 20L, 35L}) hangTree(net, at, 30, rng);
    const long tree_node = net.nodeCount() - 1;
    const long r0 = net.addNode(0, 0, 1), r1 = net.addNode(0, 0, 1), r2 = net.addNode(0, 0, 1);
    net.addResistor(tree_node, r0, 1);
    net.addResistor(r0, r1, 1);
    net.addResistor(r1, r2, 1);
    net.addResistor(r2, r0, 1);

    RP2PSolver s;
    s.loadNetwork(net, -1);
    NodeSet kept;
    int series = -1;
    // Two core nodes: exactly the core stays.
    ASSERT_EQ(s.trimNodeGraph(8, 27, kept, series), 1);
    NodeSet core(36);
    std::iota(core.begin(), core.end(), 0L);
    EXPECT_EQ(kept, core);
    EXPECT_EQ(series, 0);
    // A core node and a node of the ring: the core, the tree path to the ring, and the ring.
    ASSERT_EQ(s.trimNodeGraph(8, r1, kept, series), 1);
    EXPECT_TRUE(std::includes(kept.begin(), kept.end(), core.begin(), core.end()));
    EXPECT_TRUE(std::binary_search(kept.begin(), kept.end(), r0));
    EXPECT_TRUE(std::binary_search(kept.begin(), kept.end(), r2));
    EXPECT_LT(kept.size(), static_cast<size_t>(net.nodeCount()));
    // Two nodes of one tree: only the tree path between them, a chain.
    ASSERT_EQ(s.trimNodeGraph(tree_node, r0, kept, series), 1);
    EXPECT_EQ(kept, (NodeSet{tree_node, r0}));
    EXPECT_EQ(series, 1);

    for (auto [a, b] :
         std::vector<std::pair<long, long>>{{8, 27}, {8, r1}, {0, tree_node}, {r2, 40}}) {
        SCOPED_TRACE(std::to_string(a) + " " + std::to_string(b));
        expectAllNear(solveEveryWay(net, a, b), rtest::pseudoInverseResistance(net, a, b));
    }

    // A ring has no cut vertex: nothing to trim, the whole graph is solved.
    RNetwork ring =
        fromEdges(6, {{0, 1, 1}, {1, 2, 1}, {2, 3, 1}, {3, 4, 1}, {4, 5, 1}, {5, 0, 1}});
    RP2PSolver rs;
    rs.loadNetwork(ring, -1);
    EXPECT_EQ(rs.trimNodeGraph(0, 3, kept, series), 0);
    rs.trim_threshold = 0;
    rs.verbose = true;
    testing::internal::CaptureStdout();
    EXPECT_NEAR(rs.solveP2pResistances(0, 3), 1.5, 1e-12);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                HasSubstr("current network searching failed, will solve full graph matrix (6 "
                          "nodes) directly."));
}

TEST(P2PSolver, CurrentNetHoldsThePathsAndNotTheDeadEnds) {
    // 0 - 1 - 2 with a dead end 1 - 3 and a separate piece 4 - 5.
    RP2PSolver s;
    s.loadNetwork(fromEdges(6, {{0, 1, 1}, {1, 3, 1}, {1, 2, 1}, {4, 5, 1}}), -1);
    EXPECT_EQ(s.findCurrentNet(0, 2), 0);
    EXPECT_EQ(s.current_net, (NodeSet{0, 1, 2}));
    NodeSet group;
    s.getNodeGroup(0, 2, group);
    EXPECT_EQ(group, (NodeSet{0, 1, 2}));
    EXPECT_EQ(s.findCurrentNet(0, 4), 1);  // no path
    s.getNodeGroup(0, 4, group);
    EXPECT_EQ(group, s.all_nodes);
    s.getNodeGroup(0, 6, group);
    EXPECT_TRUE(group.empty());
}

TEST(P2PSolver, BatchPathsAgreeWithPairwiseSolvesOnManyPairs) {
    std::mt19937 rng(31);
    RNetwork net = rtest::randomConnected(300, 400, rng);
    RP2PSolver s;
    s.loadNetwork(net, -1);
    std::vector<long> from, to;
    for (int k = 0; k < 60; ++k) {
        from.push_back(rng() % 300);
        to.push_back(rng() % 300);
    }
    std::vector<double> first, by_source;
    s.batchsolveCurrentFirst(from, to, first);
    s.batchsolve(from, to, by_source);
    for (size_t i = 0; i < from.size(); ++i) {
        const double pair = s.solveP2pResistances(from[i], to[i]);
        if (from[i] == to[i]) {
            EXPECT_EQ(first[i], -1);
            EXPECT_EQ(by_source[i], -1);
            continue;
        }
        EXPECT_NEAR(first[i], pair, 1e-9 * pair);
        EXPECT_NEAR(by_source[i], pair, 1e-9 * pair);
    }
    // The batch path by conjugate gradients: one preconditioner, one iteration per pair.
    s.use_cg = 1;
    std::vector<double> by_cg;
    s.batchsolveCurrentFirst(from, to, by_cg);
    for (size_t i = 0; i < from.size(); ++i)
        if (from[i] != to[i]) {
            EXPECT_NEAR(by_cg[i], first[i], 1e-7 * first[i]);
        }
}

TEST(P2PSolver, GroupSelectionTakesOnlyThatGroupsResistors) {
    RNetwork net = fromEdges(5, {{0, 1, 1}, {1, 2, 1}, {3, 4, 1}});
    net.checkConnectivity(nullptr);
    RP2PSolver s;
    s.loadNetwork(net, net.groups[3]);
    EXPECT_EQ(s.all_nodes, (NodeSet{3, 4}));
    EXPECT_EQ(s.n_nodes, 5);
}

TEST(P2PSolver, MillionNodeChainNeedsNoCallStack) {
    const long n = 1000000;
    RNetwork chain;
    chain.nodes.assign(n, {0, 0});
    chain.node_layers.assign(n, 1);
    chain.res_from.resize(n - 1);
    chain.res_to.resize(n - 1);
    chain.res_value.assign(n - 1, 0.5);
    for (long i = 0; i + 1 < n; ++i) chain.res_from[i] = i, chain.res_to[i] = i + 1;
    RP2PSolver s;
    s.loadNetwork(chain, -1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NEAR(s.solveP2pResistances(0, n - 1), 0.5 * (n - 1), 1e-6);
    EXPECT_NEAR(s.solveP2pResistances(400000, 400010), 5.0, 1e-12);
    EXPECT_EQ(s.findCurrentNet(0, n - 1), 0);
    EXPECT_EQ(static_cast<long>(s.current_net.size()), n);
    chain.checkConnectivity(nullptr);
    EXPECT_EQ(chain.group_count, 1);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
              20.0);
}
