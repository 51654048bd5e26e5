// DSPF: the written dialect line by line, the reader on its own output (same resistor graph) and
// on a hand-written file from another tool's dialect, and the reader's three error texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>

#include "resistance/rdspf.h"
#include "resistance_test_util.h"

using ::testing::HasSubstr;

namespace {

std::vector<RNetwork> dspfDesign() {
    std::vector<RNetwork> nets(6);
    RNetwork& a = nets[1];
    a.name = "A";
    a.addNode(0, 0, 1);
    a.addNode(1000, 0, 2);
    a.addNode(1000, 500, 1);
    a.node_names[0] = "I1:G";
    a.node_names[2] = "uA";
    a.addResistor(0, 1, 2.5);
    a.addResistor(1, 2, 0.0001);
    RNetwork& b = nets[2];
    b.name = "B";
    b.addNode(-20, 30, 3);
    b.addNode(5, 5, 3);
    b.addNode(40, -70, 4);
    b.removed_nodes.insert(1);
    b.addResistor(0, 1, 3.0);
    b.addResistor(0, 2, 4.0);
    nets[3].name = "x__signalGND";
    nets[3].addNode(0, 0, 1);
    nets[4].addNode(0, 0, 1);  // no name
    RNetwork& c = nets[5];
    c.name = "C";
    for (int i = 0; i < 4; ++i) c.addNode(i * 1000, 0, 1);
    c.node_names[0] = "uC";
    c.node_names[1] = "uC";  // the same port twice: one port line
    c.node_names[2] = "Q1:BASE";
    c.node_names[3] = "M2:GATE";
    c.addResistor(0, 2, 1);
    c.addResistor(1, 3, 1);
    c.addResistor(2, 3, 1);
    return nets;
}

std::string writeDspf(const std::filesystem::path& path, std::vector<RNetwork>& nets,
                      const std::vector<RDspfInstance>& instances = {},
                      const std::vector<std::string>& more = {}) {
    RDspfWriter w;
    w.scale = 0.001;
    w.min_value = 0.001;
    std::vector<long> ids;
    for (long i = static_cast<long>(nets.size()) - 1; i >= 0; --i) ids.push_back(i);  // any order
    EXPECT_TRUE(
        w.write(path.string(), nets, ids, {"top", {"1", "abc", "9", "0"}}, instances, more));
    return rtest::readText(path);
}

std::vector<RNetwork> loadDspf(const std::filesystem::path& path, double scale = 0.001) {
    RDspfLoader loader;
    loader.scale = scale;
    std::vector<RNetwork> nets;
    loader.load(path.string(), nets);
    return nets;
}

}  // namespace

TEST(DspfWriter, WritesHeadNetsAndInstancesInItsDialect) {
    const auto dir = rtest::tempDir();
    auto nets = dspfDesign();
    RDspfInstance m{'M', "1", "", "", {1, 2, 99, 5}, {}, "nch", {"w=1", "l=2"}};
    RDspfInstance d{'D', "3", "_a", "", {1, 2}, {false, true}, "dio", {}};
    RDspfInstance x{'X', "U5", "", "top/", {1, 2, 5}, {true, true, true}, "npn", {}};
    RDspfInstance x2{'X', "U6", "", "", {1, 2}, {true, true}, "dio2", {}};
    const std::string text = writeDspf(dir / "d.spf", nets, {m, d, x, x2}, {"* extra"});
    static const std::regex date(
        R"(\*\|DATE "[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d \d{4}"\n)");
    std::smatch found;
    ASSERT_TRUE(std::regex_search(text, found, date)) << text;
    const std::string without_date = text.substr(0, found.position()) + "*|DATE\n" +
                                     text.substr(found.position() + found.length());
    EXPECT_EQ(without_date,
              "*\n*|DSPF 1.5\n*\n*|DATE\n*|VENDOR \"Orvelle Technology\"\n*|PROGRAM "
              "\"Dravix\"\n*|VERSION \"1.0\"\n*|DESIGN \"top\"\n*|DIVIDER /\n*|DELIMITER :\n"
              "*|DiviceFingerDelim \"@\"\n*|BUSBIT []\n*\n"
              ".SUBCKT top A ln_abc ln_9 ln_0\n"
              "*|NET A 0PF\n"
              "*|I (I1:G I1 G I 0 0.000 0.000)\n"
              "*|S (A:1 1.000 0.000)\n"
              "*|P (A O 0 1.000 0.500)\n"
              "R1_0 I1:G A:1 2.500000\n"
              "R1_1 A:1 A 0.001000\n"
              "\n"
              "*|NET B 0PF\n"
              "*|S (B:1 -0.020 0.030)\n"
              "*|S (B:2 0.040 -0.070)\n"
              "R2_1 B:1 B:2 4.000000\n"
              "\n"
              "*|NET C 0PF\n"
              "*|P (C O 0 0.000 0.000)\n"
              "*|I (Q1:BASE Q1 BASE B 0 2.000 0.000)\n"
              "*|I (M2:GATE M2 GATE I 0 3.000 0.000)\n"
              "R5_0 C Q1:BASE 1.000000\n"
              "R5_1 C M2:GATE 1.000000\n"
              "R5_2 Q1:BASE M2:GATE 1.000000\n"
              "\n"
              "\n"
              "*\n*Instance Section\n*\n"
              "M1 A B 99 C nch w=1 l=2 \n"
              "D3_a A d3:CATHODE dio \n"
              "top/XU5 dU5:COLL dU5:BASE dU5:EMIT npn \n"
              "XU6 dU6:ANODE dU6:CATHODE dio2 \n"
              "* extra\n"
              ".ENDS\n");
}

TEST(DspfWriter, PinNamesFollowTheDeviceLetterAndPinCount) {
    struct Case {
        char letter;
        size_t pins;
        std::vector<std::string> names;
    };
    for (const Case& c : std::vector<Case>{{'D', 2, {"ANODE", "CATHODE"}},
                                           {'Q', 3, {"COLL", "BASE", "EMIT"}},
                                           {'X', 3, {"COLL", "BASE", "EMIT"}},
                                           {'X', 4, {"DRN", "GATE", "SRC", "BULK"}},
                                           {'M', 4, {"DRN", "GATE", "SRC", "BULK"}},
                                           {'R', 2, {"DRN", "GATE"}}}) {
        for (size_t p = 0; p < c.names.size(); ++p)
            EXPECT_EQ(RDspfWriter::pinName(c.letter, c.pins, p), c.names[p])
                << c.letter << c.pins << " pin " << p;
    }
}

TEST(DspfWriter, FailsQuietlyWhenTheFileDoesNotOpen) {
    const auto dir = rtest::tempDir();
    auto nets = dspfDesign();
    RDspfWriter w;
    EXPECT_FALSE(w.write((dir / "no" / "x.spf").string(), nets, {1}, {"top", {}}, {}));
}

TEST(DspfRoundTrip, ReaderGivesTheWrittenResistorGraph) {
    const auto dir = rtest::tempDir();
    // Generated nets: every node, value and port comes back.
    std::mt19937 rng(5);
    std::vector<RNetwork> design(1);
    for (int k = 0; k < 30; ++k) {
        RNetwork net = rtest::randomConnected(2 + rng() % 60, rng() % 30, rng);
        net.name = "n" + std::to_string(k);
        for (double& v : net.res_value) v = std::round(v * 1e6) / 1e6;
        for (auto& p : net.nodes)
            p = {static_cast<int>(rng() % 100000), -static_cast<int>(rng() % 100000)};
        net.node_names[0] = "u" + net.name;
        for (long v = 1; v < net.nodeCount(); ++v)
            if (rng() % 4 == 0) net.node_names[v] = "I" + std::to_string(v) + ":S";
        design.push_back(std::move(net));
    }
    writeDspf(dir / "g.spf", design);
    const auto loaded = loadDspf(dir / "g.spf");
    ASSERT_EQ(loaded.size(), design.size());
    for (size_t i = 1; i < design.size(); ++i) {
        SCOPED_TRACE(design[i].name);
        EXPECT_EQ(loaded[i].name, design[i].name);
        EXPECT_EQ(loaded[i].nodes, design[i].nodes);
        EXPECT_EQ(loaded[i].node_names, design[i].node_names);
        EXPECT_EQ(loaded[i].res_from, design[i].res_from);
        EXPECT_EQ(loaded[i].res_to, design[i].res_to);
        ASSERT_EQ(loaded[i].res_value.size(), design[i].res_value.size());
        for (size_t r = 0; r < design[i].res_value.size(); ++r)
            EXPECT_NEAR(loaded[i].res_value[r], design[i].res_value[r], 1e-9);
    }
}

TEST(DspfReader, ReadsAnotherToolsDialect) {
    const auto nets = loadDspf(std::filesystem::path(KARVEN_TEST_DIR) / "data" / "inverter.spf");
    ASSERT_EQ(nets.size(), 3u);
    const RNetwork& in = nets[1];
    EXPECT_EQ(in.name, "IN");
    ASSERT_EQ(in.nodeCount(), 4);
    EXPECT_EQ(in.node_names,
              (std::unordered_map<long, std::string>{{0, "uIN"}, {1, "MN1:G"}, {2, "MP1:GATE"}}));
    EXPECT_EQ(in.nodes[0], std::make_pair(500, 1250));
    EXPECT_EQ(in.nodes[3], std::make_pair(750, 1250));  // the position came on a "+" line
    EXPECT_EQ(in.res_from, (std::vector<long>{0, 3, 3}));
    EXPECT_EQ(in.res_to, (std::vector<long>{3, 1, 2}));
    EXPECT_EQ(in.res_value, (std::vector<double>{10.5, 20, 30}));  // capacitors dropped
    const RNetwork& out = nets[2];
    EXPECT_EQ(out.name, "OUT");
    EXPECT_EQ(out.nodeCount(), 3);
    EXPECT_EQ(out.res_value, (std::vector<double>{5, 5, 100}));
}

TEST(DspfReader, MalformedLinesEndTheLoadWithTheirTexts) {
    const auto dir = rtest::tempDir();
    const std::string good =
        rtest::readText(std::filesystem::path(KARVEN_TEST_DIR) / "data" / "inverter.spf");
    auto insertAfterR3 = [&](const std::string& lines) {
        std::string s = good;
        const size_t at = s.find("R3 IN:1 MP1:GATE 30.0\n") + 22;
        return s.insert(at, lines);
    };
    struct Case {
        std::string text;
        std::string message;
    };
    const std::vector<Case> cases = {
        {insertAfterR3("R7 IN:1 MN1:G\n"), "Unrecognized spf line: R7 IN:1 MN1:G"},
        {insertAfterR3("R7 IN:1 nowhere 3\n"), "Unrecognized node name: nowhere"},
        {insertAfterR3("R7 IN:1 MN1:G 3ohm\n"), "Invalid resistance value: R7 IN:1 MN1:G 3ohm"},
        {insertAfterR3("X1 garbage\n"), "Unrecognized spf line: X1 garbage"},
        {insertAfterR3("*|Q (x 1 2)\n"), "Unrecognized spf line: *|Q (x 1 2)"},
        {insertAfterR3("*|S\n"), "Unrecognized spf line: *|S"},
        {good.substr(0, good.find(".ENDS")), "\".ENDS\" is missing"},
        {good.substr(0, good.find("*|NET")), "\".ENDS\" is missing"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        rtest::writeText(dir / "bad.spf", c.text);
        RDspfLoader loader;
        std::vector<RNetwork> nets(7);
        try {
            loader.load((dir / "bad.spf").string(), nets);
            ADD_FAILURE() << "loaded";
        } catch (const std::runtime_error& e) {
            EXPECT_THAT(e.what(), HasSubstr(c.message));
        }
        EXPECT_EQ(nets.size(), 7u);
    }
    RDspfLoader loader;
    std::vector<RNetwork> nets;
    EXPECT_THROW(loader.load((dir / "missing.spf").string(), nets), std::runtime_error);
}
