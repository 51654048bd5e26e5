// The network model: its file (exact text, round trips, every kind of damage) and the
// connectivity labelling and repairs, checked against hand-built nets and a union-find count.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <stdexcept>

#include "resistance/rnetwork.h"
#include "resistance_test_util.h"

namespace {

// Two nets: "A" with names, a floored value and two layers; "B" with a removed node in the
// middle whose resistors are kept.
std::vector<RNetwork> smallDesign() {
    std::vector<RNetwork> nets(3);
    RNetwork& a = nets[1];
    a.name = "A";
    a.addNode(0, 0, 1);
    a.addNode(1000, 0, 2);
    a.addNode(1000, 500, 1);
    a.node_names[2] = "uA";
    a.node_names[0] = "I1:G";
    a.addResistor(0, 1, 2.5);
    a.addResistor(1, 2, 0.0001);
    RNetwork& b = nets[2];
    b.name = "B";
    b.addNode(-20, 30, 3);
    b.addNode(5, 5, 3);
    b.addNode(40, -70, 4);
    b.removed_nodes.insert(1);
    b.addResistor(0, 1, 3.0);
    b.addResistor(1, 2, 4.0);
    return nets;
}

const std::vector<RLayer> kLayers{{"M1", 1}, {"VIA1", 2}};
const std::vector<double> kLayerValues{0.08, -1.0};

const char* const kSmallText =
    "<UNIT ACTUALITY>\n"
    "<TOTAL NETS 3>\n"
    "<TECHLAYER NAME>\n"
    "\tM1\t1\t0.080000\n"
    "\tVIA1\t2\n"
    "</TECHLAYER NAME>\n"
    "\n"
    "<NET A>\n"
    "\t<NETID 1>\n"
    "\t<NODE NAME>\n"
    "\t\t0\tI1:G\n"
    "\t\t2\tuA\n"
    "\t</NODE NAME>\n"
    "\t<NODE>\n"
    "\t\t0\t(0.000000, 0.000000)\t1\n"
    "\t\t1\t(1.000000, 0.000000)\t2\n"
    "\t\t2\t(1.000000, 0.500000)\t1\n"
    "\t</NODE>\n"
    "\t<RV>\n"
    "\t\t0\t1\t2.500000\n"
    "\t\t1\t2\t0.001000\n"
    "\t</RV>\n"
    "</NET>\n"
    "\n"
    "<NET B>\n"
    "\t<NETID 2>\n"
    "\t<NODE NAME>\n"
    "\t</NODE NAME>\n"
    "\t<NODE>\n"
    "\t\t0\t(-0.020000, 0.030000)\t3\n"
    "\t\t2\t(0.040000, -0.070000)\t4\n"
    "\t</NODE>\n"
    "\t<RV>\n"
    "\t\t0\t1\t3.000000\n"
    "\t\t1\t2\t4.000000\n"
    "\t</RV>\n"
    "</NET>\n"
    "\n";

std::string writeDesign(const std::filesystem::path& path, std::vector<RNetwork>& nets,
                        double scale = 0.001, double min_value = 0.001) {
    RNWriter w;
    w.scale = scale;
    w.min_value = min_value;
    EXPECT_EQ(w.write(path.string(), nets, kLayers, kLayerValues), 1);
    return rtest::readText(path);
}

std::vector<RNetwork> readDesign(const std::filesystem::path& path, double scale = 0.001) {
    RNLoader loader;
    loader.scale = scale;
    std::vector<RNetwork> nets;
    std::vector<RLayer> layers;
    std::vector<double> values;
    EXPECT_EQ(loader.load(path.string(), nets, layers, values), 1);
    if (!layers.empty()) {
        EXPECT_EQ(values, kLayerValues);
        EXPECT_EQ(layers[1].name, "VIA1");
        EXPECT_EQ(layers[1].number, 2);
    }
    return nets;
}

}  // namespace

TEST(RNetworkFile, WritesTheExactText) {
    const auto dir = rtest::tempDir();
    auto nets = smallDesign();
    EXPECT_EQ(writeDesign(dir / "d.rn", nets), kSmallText);
    RNWriter w;
    w.square_unit = w.fixed_value = true;
    w.value = 7.25;
    ASSERT_EQ(w.write((dir / "f.rn").string(), nets, kLayers, kLayerValues), 1);
    const std::string text = rtest::readText(dir / "f.rn");
    EXPECT_EQ(text.substr(0, 14), "<UNIT SQUARE>\n");
    EXPECT_THAT(text, ::testing::HasSubstr("\t\t0\t1\t7.250000\n\t\t1\t2\t7.250000\n"));
}

TEST(RNetworkFile, WriterFailsWithoutWritingAndCountsEntryZero) {
    const auto dir = rtest::tempDir();
    auto nets = smallDesign();
    RNWriter w;
    EXPECT_EQ(w.write((dir / "x.rn").string(), nets, kLayers, {1.0}), 0);
    EXPECT_FALSE(std::filesystem::exists(dir / "x.rn"));
    EXPECT_EQ(w.write((dir / "no" / "such" / "x.rn").string(), nets, kLayers, kLayerValues), 0);
    // One entry: the total says 1 and no net follows; it reads back as an empty design.
    std::vector<RNetwork> only_zero(1);
    ASSERT_EQ(w.write((dir / "z.rn").string(), only_zero, {}, {}), 1);
    EXPECT_EQ(rtest::readText(dir / "z.rn"),
              "<UNIT ACTUALITY>\n<TOTAL NETS 1>\n<TECHLAYER NAME>\n</TECHLAYER NAME>\n\n");
    EXPECT_EQ(readDesign(dir / "z.rn").size(), 1u);
}

TEST(RNetworkFile, WriteReadWriteGivesIdenticalBytes) {
    const auto dir = rtest::tempDir();
    std::mt19937 rng(7);
    for (double scale : {1.0, 0.001}) {
        std::vector<RNetwork> nets(1);
        for (int k = 0; k < 20; ++k) {
            RNetwork net = rtest::randomConnected(1 + rng() % 40, rng() % 20, rng);
            net.name = "net" + std::to_string(k);
            for (auto& p : net.nodes)
                p = {static_cast<int>(rng() % 2000000) - 1000000,
                     static_cast<int>(rng() % 2000000) - 1000000};
            for (long v = 0; v < net.nodeCount(); ++v) {
                if (rng() % 5 == 0) net.node_names[v] = "I" + std::to_string(rng() % 100) + ":D";
                // Removed nodes keep their ids through gaps; one above the last kept node would
                // leave its resistors pointing past the file's nodes, which the reader refuses.
                if (v > 0 && v + 1 < net.nodeCount() && rng() % 6 == 0) net.removed_nodes.insert(v);
            }
            nets.push_back(std::move(net));
        }
        const std::string first = writeDesign(dir / "a.rn", nets, scale, 0.0);
        auto back = readDesign(dir / "a.rn", scale);
        ASSERT_EQ(back.size(), nets.size());
        EXPECT_EQ(writeDesign(dir / "b.rn", back, scale, 0.0), first) << "scale " << scale;
    }
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
    struct Case {
        const char* what;
        std::string text;
        const char* message;  // a part of the error text
    };
    const std::vector<Case> cases = {
        {"unit line", replace("<UNIT ACTUALITY>", "<UNIT FEET>"), "header"},
        {"absurd total", replace("<TOTAL NETS 3>", "<TOTAL NETS 900000000000>"), "nets of"},
        {"total too small", replace("<TOTAL NETS 3>", "<TOTAL NETS 2>"), "out of range"},
        {"layer value", replace("\tM1\t1\t0.080000", "\tM1\t1\t0.08z"), "header"},
        {"net id zero", replace("<NETID 2>", "<NETID 0>"), "out of range"},
        {"net id order", replace("<NETID 1>", "<NETID 2>"), "out of order"},
        {"name of unknown node", replace("\t\t2\tuA", "\t\t9\tuA"), "unknown"},
        {"name twice", replace("\t\t2\tuA", "\t\t0\tuA"), "twice"},
        {"node words", replace("\t\t1\t(1.000000, 0.000000)\t2", "\t\t1\t(1.000000,0.000000)\t2"),
         "4 words"},
        {"node backward", replace("\t\t2\t(1.000000, 0.500000)", "\t\t1\t(1.000000, 0.500000)"),
         "backward"},
        {"node layer", replace("0.500000)\t1", "0.500000)\tM1"), "invalid layer"},
        {"coordinate overflow", replace("(1.000000, 0.500000)", "(1e300, 0.500000)"),
         "out of range"},
        {"resistor value nan", replace("2.500000", "nan"), "invalid number"},
        {"resistor value", replace("4.000000", "4.0.0"), " line 35: invalid number \"4.0.0\""},
        {"resistor unknown node", replace("\t\t1\t2\t0.001000", "\t\t1\t3\t0.001000"),
         "unknown node 3"},
        {"net end", replace("</NET>\n\n<NET B>", "</NETS>\n\n<NET B>"), "</NET>"},
        {"a net missing", good.substr(0, good.find("<NET B>")), "ends after 1 nets of 2"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto path = dir / "bad.rn";
        rtest::writeText(path, c.text);
        RNLoader loader;
        std::vector<RNetwork> nets(5);
        std::vector<RLayer> layers;
        std::vector<double> values;
        try {
            loader.load(path.string(), nets, layers, values);
            ADD_FAILURE() << "loaded";
        } catch (const std::runtime_error& e) {
            EXPECT_THAT(e.what(), ::testing::HasSubstr(path.string()));
            EXPECT_THAT(e.what(), ::testing::HasSubstr(" line "));
            EXPECT_THAT(e.what(), ::testing::HasSubstr(c.message));
        }
        EXPECT_EQ(nets.size(), 5u);  // untouched on failure
    }
    RNLoader loader;
    std::vector<RNetwork> nets;
    std::vector<RLayer> layers;
    std::vector<double> values;
    EXPECT_EQ(loader.load((dir / "missing.rn").string(), nets, layers, values), 0);
}

// ---------------------------------------------------------------------------------------------
// Lookups and counts

TEST(RNetworkModel, SearchMapAndNodeCountsLeaveRemovedNodesOut) {
    auto nets = smallDesign();
    RNetwork& b = nets[2];
    b.buildSearchMap();
    EXPECT_EQ(b.search(-20, 30), 0);
    EXPECT_EQ(b.search(40, -70), 2);
    EXPECT_EQ(b.search(5, 5), -1);  // removed
    EXPECT_EQ(b.search(40, 30), -1);
    b.freeSearchMap();
    EXPECT_EQ(b.search(-20, 30), -1);
    b.countNodes();
    EXPECT_EQ(b.getNodeCount(0), 1);
    EXPECT_EQ(b.getNodeCount(1), -1);
    EXPECT_EQ(b.getNodeCount(2), 1);
    EXPECT_EQ(b.getNodeCount(3), 0);
}

// ---------------------------------------------------------------------------------------------
// Connectivity

namespace {

// Group count by union-find: an independent count of the pieces of the nodes not removed.
int unionFindGroups(const RNetwork& net) {
    std::vector<long> parent(net.nodeCount());
    std::iota(parent.begin(), parent.end(), 0L);
    std::function<long(long)> find = [&](long v) {
        while (parent[v] != v) v = parent[v] = parent[parent[v]];
        return v;
    };
    for (size_t i = 0; i < net.res_from.size(); ++i) {
        const long a = net.res_from[i], b = net.res_to[i];
        if (net.isRemoved(a) || net.isRemoved(b)) continue;
        parent[find(a)] = find(b);
    }
    int groups = 0;
    for (long v = 0; v < net.nodeCount(); ++v)
        if (!net.isRemoved(v) && find(v) == v) ++groups;
    return groups;
}

}  // namespace

TEST(RNetworkConnectivity, EmptyNetHasNoGroupsAndNothingToRepair) {
    RNetwork net;
    net.checkConnectivity(nullptr);
    EXPECT_EQ(net.group_count, 0);
    EXPECT_EQ(net.fixGroups(), 0);
    EXPECT_EQ(net.connectGroupsByPort(), 0);
    EXPECT_EQ(net.nodeCount(), 0);
}

TEST(RNetworkConnectivity, LabelsGroupsFromTheLowestNodeAndSkipsRemovedOnes) {
    RNetwork net;
    for (int i = 0; i < 7; ++i) net.addNode(i, 0, 1);
    net.removed_nodes.insert(4);
    net.addResistor(0, 2, 1);
    net.addResistor(3, 1, 1);
    net.addResistor(3, 4, 1);  // to a removed node: joins nothing
    net.addResistor(4, 5, 1);
    net.addResistor(6, 5, 1);
    std::map<int, std::vector<long>> members{{9, {9}}};
    net.checkConnectivity(&members);
    EXPECT_EQ(net.groups, (std::vector<int>{0, 1, 0, 1, -2, 2, 2}));
    EXPECT_EQ(net.group_count, 3);
    EXPECT_EQ(members, (std::map<int, std::vector<long>>{{0, {0, 2}}, {1, {1, 3}}, {2, {5, 6}}}));
}

TEST(RNetworkConnectivity, FixGroupsChainsRepresentativesNearestTheCentroids) {
    RNetwork net;
    // Group 0: three in a row, the middle one is at the centroid. Group 1: two nodes equally far
    // from their centroid, the lower id stays. Group 2: a single node.
    for (auto [x, y] :
         std::vector<std::pair<int, int>>{{0, 0}, {100, 0}, {10, 0}, {110, 0}, {20, 0}, {500, 500}})
        net.addNode(x, y, 1);
    net.addResistor(0, 2, 1);
    net.addResistor(2, 4, 1);
    net.addResistor(1, 3, 1);
    net.checkConnectivity(nullptr);
    ASSERT_EQ(net.group_count, 3);
    EXPECT_EQ(net.fixGroups(), 1);
    EXPECT_TRUE(net.groups.empty());
    EXPECT_TRUE(net.adjacency.empty());
    ASSERT_EQ(net.res_from.size(), 5u);
    EXPECT_EQ(net.res_from[3], 2);
    EXPECT_EQ(net.res_to[3], 1);
    EXPECT_EQ(net.res_from[4], 1);
    EXPECT_EQ(net.res_to[4], 5);
    EXPECT_EQ(net.res_value[3], 0.001);
    net.checkConnectivity(nullptr);
    EXPECT_EQ(net.group_count, 1);
    EXPECT_EQ(net.fixGroups(), 0);
}

TEST(RNetworkConnectivity, ConnectGroupsByPortCases) {
    auto line = [](const std::string& name, int pieces) {
        RNetwork net;
        net.name = name;
        for (int p = 0; p < pieces; ++p) {
            const long a = net.addNode(100 * p, 0, p), b = net.addNode(100 * p + 10, 0, p);
            const long c = net.addNode(100 * p + 20, 0, p);
            net.addResistor(a, b, 1);
            net.addResistor(b, c, 1);
        }
        return net;
    };
    {
        SCOPED_TRACE("one group without a port: one node and one resistor at the centre");
        RNetwork net = line("", 1);
        net.checkConnectivity(nullptr);
        EXPECT_EQ(net.connectGroupsByPort(), 1);
        ASSERT_EQ(net.nodeCount(), 4);
        EXPECT_EQ(net.node_names.at(3), "uNONAME");
        EXPECT_EQ(net.nodes[3], std::make_pair(10, 0));
        ASSERT_EQ(net.res_from.size(), 3u);
        EXPECT_EQ(net.res_from[2], 3);
        EXPECT_EQ(net.res_to[2], 1);
        EXPECT_EQ(net.res_value[2], 0.001);
    }
    {
        SCOPED_TRACE("three groups, port in the middle one: a resistor to each other group");
        RNetwork net = line("n3", 3);
        net.node_names[5] = "un3";
        net.node_names[0] = "I1:G";
        net.checkConnectivity(nullptr);
        EXPECT_EQ(net.connectGroupsByPort(), 1);
        EXPECT_EQ(net.nodeCount(), 9);
        ASSERT_EQ(net.res_from.size(), 8u);
        EXPECT_EQ(std::vector<long>(net.res_from.begin() + 6, net.res_from.end()),
                  (std::vector<long>{5, 5}));
        EXPECT_EQ(std::vector<long>(net.res_to.begin() + 6, net.res_to.end()),
                  (std::vector<long>{1, 7}));
        net.checkConnectivity(nullptr);
        EXPECT_EQ(net.group_count, 1);
    }
    {
        SCOPED_TRACE("three groups, the port removed: a new port at the middle");
        RNetwork net = line("n4", 3);
        net.node_names[0] = "un4";
        net.removed_nodes.insert(0);
        net.checkConnectivity(nullptr);
        EXPECT_EQ(net.connectGroupsByPort(), 1);
        ASSERT_EQ(net.nodeCount(), 10);
        EXPECT_EQ(net.node_names.at(9), "un4");
        EXPECT_EQ(net.nodes[9], net.nodes[5]);  // (120, 0) is nearest the mean (123.75, 0)
        EXPECT_EQ(net.node_layers[9], 1);
        ASSERT_EQ(net.res_from.size(), 9u);
        EXPECT_EQ(std::vector<long>(net.res_to.begin() + 6, net.res_to.end()),
                  (std::vector<long>{1, 5, 7}));  // group 0 without node 0: 10 and 20 tie
        net.removed_nodes.clear();
        net.removed_nodes.insert(0);
        net.checkConnectivity(nullptr);
        EXPECT_EQ(net.group_count, 1);
    }
}

TEST(RNetworkConnectivity, LargeGeneratedNetsAgreeWithUnionFindAndEndInOnePiece) {
    std::mt19937 rng(3);
    RNetwork net;
    const long n = 200000;
    for (long i = 0; i < n; ++i) net.addNode(rng() % 100000, rng() % 100000, 1);
    for (long k = 0; k < n * 9 / 10; ++k) net.addResistor(rng() % n, rng() % n, 1.0);
    for (long k = 0; k < 1000; ++k) net.removed_nodes.insert(rng() % n);
    std::map<int, std::vector<long>> members;
    net.checkConnectivity(&members);
    EXPECT_EQ(net.group_count, unionFindGroups(net));
    EXPECT_GT(net.group_count, 1000);
    size_t total = 0;
    for (const auto& [g, list] : members) total += list.size();
    EXPECT_EQ(total, static_cast<size_t>(n) - net.removed_nodes.size());

    RNetwork by_port = net;
    EXPECT_EQ(net.fixGroups(), 1);
    net.checkConnectivity(nullptr);
    EXPECT_EQ(net.group_count, 1);
    EXPECT_EQ(by_port.connectGroupsByPort(), 1);
    by_port.checkConnectivity(nullptr);
    EXPECT_EQ(by_port.group_count, 1);
}
