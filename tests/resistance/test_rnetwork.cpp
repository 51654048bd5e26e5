// The network model: its file (exact text, round trips, every kind of damage) and the
// connectivity labelling and repairs, checked against hand-built nets and a union-find count.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

#include "resistance_test_util.h"

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Ends = std::vector<std::pair<long, long>>;

namespace {

const std::vector<RLayer> kLayers{{"M1", 1}, {"VIA1", 2}};
const std::vector<double> kLayerValues{0.08, -1.0};

// Written with a scale of 0.001 and a floor of 0.001; one file line per "\n".
const char* const kSmallText =
    "<UNIT ACTUALITY>\n<TOTAL NETS 3>\n<TECHLAYER NAME>\n\tM1\t1\t0.080000\n\tVIA1\t2\n"
    "</TECHLAYER NAME>\n\n<NET A>\n\t<NETID 1>\n\t<NODE NAME>\n\t\t0\tI1:G\n\t\t2\tuA\n"
    "\t</NODE NAME>\n\t<NODE>\n\t\t0\t(0.000000, 0.000000)\t1\n"
    "\t\t1\t(1.000000, 0.000000)\t2\n\t\t2\t(1.000000, 0.500000)\t1\n\t</NODE>\n\t<RV>\n"
    "\t\t0\t1\t2.500000\n\t\t1\t2\t0.001000\n\t</RV>\n</NET>\n\n<NET B>\n\t<NETID 2>\n"
    "\t<NODE NAME>\n\t</NODE NAME>\n\t<NODE>\n\t\t0\t(-0.020000, 0.030000)\t3\n"
    "\t\t2\t(0.040000, -0.070000)\t4\n\t</NODE>\n\t<RV>\n\t\t0\t1\t3.000000\n"
    "\t\t0\t2\t4.000000\n\t</RV>\n</NET>\n\n";

// What the loader makes of `path` (coordinates in units of 0.001): its result, or -1 and the
// message when it throws. `nets` starts with 5 entries, to show that a failure leaves them.
struct Loaded {
    int result = -1;
    std::vector<RNetwork> nets = std::vector<RNetwork>(5);
    std::vector<RLayer> layers;
    std::vector<double> values;
    std::string error;
};

Loaded load(const std::filesystem::path& path) {
    Loaded r;
    RNLoader loader;
    loader.scale = 0.001;
    try {
        r.result = loader.load(path.string(), r.nets, r.layers, r.values);
    } catch (const std::runtime_error& e) {
        r.error = e.what();
    }
    return r;
}

// The (from, to) pairs of the resistors from index `first` on.
Ends ends(const RNetwork& net, size_t first) {
    Ends out;
    for (size_t i = first; i < net.res_from.size(); ++i)
        out.emplace_back(net.res_from[i], net.res_to[i]);
    return out;
}

// Group count by union-find: an independent count of the pieces of the nodes not removed.
int unionFindGroups(const RNetwork& net) {
    std::vector<long> parent(net.nodeCount());
    std::iota(parent.begin(), parent.end(), 0L);
    auto find = [&](long v) {
        while (parent[v] != v) v = parent[v] = parent[parent[v]];
        return v;
    };
    for (size_t i = 0; i < net.res_from.size(); ++i)
        if (!net.isRemoved(net.res_from[i]) && !net.isRemoved(net.res_to[i]))
            parent[find(net.res_from[i])] = find(net.res_to[i]);
    int groups = 0;
    for (long v = 0; v < net.nodeCount(); ++v) groups += !net.isRemoved(v) && find(v) == v;
    return groups;
}

}  // namespace

TEST(RNetworkFile, WritesTheExactTextAndReadsItBack) {
    const auto dir = rtest::tempDir();
    auto nets = rtest::smallDesign();
    RNWriter w;
    w.scale = w.min_value = 0.001;
    ASSERT_EQ(w.write((dir / "d.rn").string(), nets, kLayers, kLayerValues), 1);
    EXPECT_EQ(rtest::readText(dir / "d.rn"), kSmallText);
    // Read back and written again: the same bytes; the gap in B's ids is a removed node again.
    Loaded back = load(dir / "d.rn");
    ASSERT_EQ(back.result, 1);
    EXPECT_EQ(back.nets[2].removed_nodes, std::set<long>{1});
    ASSERT_EQ(w.write((dir / "b.rn").string(), back.nets, back.layers, back.values), 1);
    EXPECT_EQ(rtest::readText(dir / "b.rn"), kSmallText);
    EXPECT_EQ(load(dir / "missing.rn").result, 0);

    w.square_unit = w.fixed_value = true;
    w.value = 7.25;
    ASSERT_EQ(w.write((dir / "f.rn").string(), nets, kLayers, kLayerValues), 1);
    EXPECT_THAT(
        rtest::readText(dir / "f.rn"),
        AllOf(StartsWith("<UNIT SQUARE>\n"), HasSubstr("\t1\t7.250000\n\t\t1\t2\t7.250000\n")));
    // Refused: layer values that do not match the table (nothing written), a missing folder.
    EXPECT_EQ(w.write((dir / "x.rn").string(), nets, kLayers, {1.0}), 0);
    EXPECT_FALSE(std::filesystem::exists(dir / "x.rn"));
    EXPECT_EQ(w.write((dir / "no" / "x.rn").string(), nets, kLayers, kLayerValues), 0);
    // Entry zero alone: a total of 1 and no net, which reads back as an empty design.
    std::vector<RNetwork> only_zero(1);
    ASSERT_EQ(w.write((dir / "z.rn").string(), only_zero, {}, {}), 1);
    EXPECT_EQ(load(dir / "z.rn").nets.size(), 1u);
}

TEST(RNetworkFile, EveryKindOfDamageEndsTheLoadNamingFileAndLine) {
    const auto dir = rtest::tempDir();
    const std::string good = kSmallText;
    auto replace = [&](const std::string& from, const std::string& to) {
        std::string s = good;
        const size_t at = s.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return s.replace(at, from.size(), to);
    };
    const std::vector<std::pair<std::string, std::string>> cases = {
        // text, part of the error
        {replace("<UNIT ACTUALITY>", "<UNIT FEET>"), "header"},
        {replace("<TOTAL NETS 3>", "<TOTAL NETS 900000000000>"), "nets of"},
        {replace("<TOTAL NETS 3>", "<TOTAL NETS 2>"), "out of range"},
        {replace("\tM1\t1\t0.080000", "\tM1\t1\t0.08z"), "header"},
        {replace("<NETID 2>", "<NETID 0>"), "out of range"},
        {replace("<NETID 1>", "<NETID 2>"), "out of order"},
        {replace("\t\t2\tuA", "\t\t9\tuA"), "unknown"},
        {replace("\t\t2\tuA", "\t\t0\tuA"), "twice"},
        {replace("(1.000000, 0.000000)", "(1.000000,0.000000)"), "4 words"},
        {replace("\t\t2\t(1.000000, 0.500000)", "\t\t1\t(1.000000, 0.500000)"), "backward"},
        {replace("0.500000)\t1", "0.500000)\tM1"), "invalid layer"},
        {replace("(1.000000, 0.500000)", "(1e300, 0.500000)"), "out of range"},
        {replace("4.000000", "4.0.0"), " line 35: invalid number \"4.0.0\""},
        {replace("\t\t0\t1\t2.5", "\t\t3\t1\t2.5"), "unknown node 3"},
        {replace("\t\t1\t2\t0.001000", "\t\t1\t3\t0.001000"), "unknown node 3"},
        {replace("</NET>\n\n<NET B>", "</NETS>\n\n<NET B>"), "</NET>"},
        {good.substr(0, good.find("<NET B>")), "ends after 1 nets of 2"},
    };
    for (const auto& [text, message] : cases) {
        rtest::writeText(dir / "bad.rn", text);
        const Loaded r = load(dir / "bad.rn");
        EXPECT_EQ(r.result, -1) << message;
        EXPECT_THAT(r.error, HasSubstr("Network file " + (dir / "bad.rn").string() + " line "));
        EXPECT_THAT(r.error, HasSubstr(message));
        EXPECT_EQ(r.nets.size(), 5u);  // untouched on failure
    }
    // Every cut before the last net's end fails; past it only the last line end is lost.
    for (size_t cut = 0; cut < good.size(); ++cut) {
        rtest::writeText(dir / "cut.rn", good.substr(0, cut));
        ASSERT_EQ(load(dir / "cut.rn").result, cut > good.rfind("</NET>") + 5 ? 1 : -1) << cut;
    }
}

TEST(RNetworkConnectivity, LabelsGroupsFromTheLowestNodeAndSkipsRemovedOnes) {
    RNetwork empty;
    empty.checkConnectivity(nullptr);
    EXPECT_EQ(empty.group_count, 0);
    EXPECT_EQ(empty.fixGroups() + empty.connectGroupsByPort(), 0);

    // The resistors to removed node 4 join nothing.
    RNetwork net = rtest::fromEdges(7, {{0, 2, 1}, {3, 1, 1}, {3, 4, 1}, {4, 5, 1}, {6, 5, 1}});
    net.removed_nodes.insert(4);
    std::map<int, std::vector<long>> members{{9, {9}}};
    net.checkConnectivity(&members);
    EXPECT_EQ(net.groups, (std::vector<int>{0, 1, 0, 1, -2, 2, 2}));
    EXPECT_EQ(net.group_count, 3);
    EXPECT_EQ(members, (std::map<int, std::vector<long>>{{0, {0, 2}}, {1, {1, 3}}, {2, {5, 6}}}));
}

TEST(RNetworkConnectivity, FixGroupsChainsRepresentativesNearestTheCentroids) {
    // Group 0: three in a row, the middle one (2) at the centroid. Group 1: two nodes equally far
    // from their centroid, the lower id (1) stays. Group 2: node 5 alone.
    RNetwork net = rtest::fromEdges(6, {{0, 2, 1}, {2, 4, 1}, {1, 3, 1}});
    net.nodes = {{0, 0}, {100, 0}, {10, 0}, {110, 0}, {20, 0}, {500, 500}};
    net.checkConnectivity(nullptr);
    ASSERT_EQ(net.group_count, 3);
    EXPECT_EQ(net.fixGroups(), 1);
    EXPECT_EQ(ends(net, 3), (Ends{{2, 1}, {1, 5}}));
    EXPECT_EQ(net.res_value.back(), RNetwork::kTieValue);
    net.checkConnectivity(nullptr);
    EXPECT_EQ(net.group_count, 1);
    EXPECT_EQ(net.fixGroups(), 0);
}

TEST(RNetworkConnectivity, ConnectGroupsByPortTiesEveryGroupToThePort) {
    // `pieces` separate wires of three nodes 10 apart, the p-th from x = 100 p on layer p, tied
    // to the port (`port` named, and removed if so told).
    auto tie = [](const std::string& name, int pieces, long port, bool removed) {
        RNetwork net;
        net.name = name;
        for (int v = 0; v < 3 * pieces; ++v) net.addNode(100 * (v / 3) + 10 * (v % 3), 0, v / 3);
        for (int v = 0; v < 3 * pieces; ++v)
            if (v % 3 != 2) net.addResistor(v, v + 1, 1);
        if (port >= 0) net.node_names[port] = "u" + name;
        if (removed) net.removed_nodes.insert(port);
        net.checkConnectivity(nullptr);
        EXPECT_EQ(net.connectGroupsByPort(), 1);
        return net;
    };
    // One group without a port: a new port at its centre, tied to it.
    const RNetwork one = tie("", 1, -1, false);
    ASSERT_EQ(one.nodeCount(), 4);
    EXPECT_EQ(one.node_names.at(3), "uNONAME");
    EXPECT_EQ(one.nodes[3], std::make_pair(10, 0));
    EXPECT_EQ(ends(one, 2), (Ends{{3, 1}}));
    // Three groups, the port in the middle one: a tie to the centre of each other group.
    const RNetwork middle = tie("n3", 3, 5, false);
    EXPECT_EQ(ends(middle, 6), (Ends{{5, 1}, {5, 7}}));
    // The port removed: a new one at (120, 0), the node nearest the mean (123.75, 0). Group 0
    // without node 0 has 10 and 20 tied for its centre; the lower id stays.
    const RNetwork removed = tie("n4", 3, 0, true);
    ASSERT_EQ(removed.nodeCount(), 10);
    EXPECT_EQ(removed.node_names.at(9), "un4");
    EXPECT_EQ(removed.nodes[9], removed.nodes[5]);
    EXPECT_EQ(removed.node_layers[9], 1);
    EXPECT_EQ(ends(removed, 6), (Ends{{9, 1}, {9, 5}, {9, 7}}));
}

TEST(RNetworkConnectivity, LargeGeneratedNetsAgreeWithUnionFind) {
    std::mt19937 rng(3);
    RNetwork net;
    const long n = 200000;
    for (long i = 0; i < n; ++i) net.addNode(rng() % 100000, rng() % 100000, 1);
    for (long k = 0; k < n * 9 / 10; ++k) net.addResistor(rng() % n, rng() % n, 1.0);
    for (long k = 0; k < 1000; ++k) net.removed_nodes.insert(rng() % n);
    net.checkConnectivity(nullptr);
    EXPECT_EQ(net.group_count, unionFindGroups(net));
    EXPECT_GT(net.group_count, 1000);
}
