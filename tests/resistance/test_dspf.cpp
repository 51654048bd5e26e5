// DSPF: the written dialect line by line, the reader on a hand-written file from another tool's
// dialect, and the reader's error texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>

#include "resistance/rdspf.h"
#include "resistance_test_util.h"

using ::testing::HasSubstr;

namespace {

const std::filesystem::path kInverter =
    std::filesystem::path(KARVEN_TEST_DIR) / "data/inverter.spf";

}  // namespace

TEST(DspfWriter, WritesHeadNetsAndInstancesInItsDialect) {
    const auto dir = rtest::tempDir();
    // A and B as in the network tests. Skipped: a ground net and a net without a name. C: the
    // same port twice (one port line) and pins of a bipolar and a MOS device.
    std::vector<RNetwork> nets = rtest::smallDesign();
    nets.resize(6, rtest::fromEdges(1, {}));
    nets[3].name = "x__signalGND";
    nets[4].name = "";
    nets[5] = rtest::fromEdges(4, {{0, 2, 1}, {1, 3, 1}, {2, 3, 1}});
    for (auto& p : nets[5].nodes) p.first *= 1000;
    nets[5].name = "C";
    nets[5].node_names = {{0, "uC"}, {1, "uC"}, {2, "Q1:BASE"}, {3, "M2:GATE"}};
    const std::vector<RDspfInstance> instances{
        {'M', "1", "", "", {1, 2, 99, 5}, {}, "nch", {"w=1", "l=2"}},
        {'D', "3", "_a", "", {1, 2}, {false, true}, "dio", {}},
        {'X', "U5", "", "top/", {1, 2, 5}, {true, true, true}, "npn", {}},
        {'X', "U6", "", "", {1, 2}, {true, true}, "dio2", {}},
        {'X', "U7", "", "", {1, 2, 3, 4}, {true, true, true, true}, "mos", {}}};
    RDspfWriter w;
    w.scale = w.min_value = 0.001;
    // The nets in any order: the writer sorts them.
    ASSERT_TRUE(w.write((dir / "d.spf").string(), nets, {5, 4, 3, 2, 1, 0},
                        {"top", {"1", "abc", "9", "0"}}, instances, {"* extra"}));
    const std::string text = rtest::readText(dir / "d.spf");

    // The date changes from run to run; the rest of the file is fixed.
    static const std::regex date(
        R"(\*\|DATE "[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d \d{4}"\n)");
    EXPECT_EQ(std::regex_replace(text, date, "*|DATE\n"),
              "*\n*|DSPF 1.5\n*\n*|DATE\n*|VENDOR \"Orvelle Technology\"\n"
              "*|PROGRAM \"Dravix\"\n*|VERSION \"1.0\"\n*|DESIGN \"top\"\n*|DIVIDER /\n"
              "*|DELIMITER :\n*|DiviceFingerDelim \"@\"\n*|BUSBIT []\n*\n"
              ".SUBCKT top A ln_abc ln_9 ln_0\n"
              "*|NET A 0PF\n*|I (I1:G I1 G I 0 0.000 0.000)\n*|S (A:1 1.000 0.000)\n"
              "*|P (A O 0 1.000 0.500)\nR1_0 I1:G A:1 2.500000\nR1_1 A:1 A 0.001000\n\n"
              "*|NET B 0PF\n*|S (B:1 -0.020 0.030)\n*|S (B:2 0.040 -0.070)\n"
              "R2_1 B:1 B:2 4.000000\n\n"
              "*|NET C 0PF\n*|P (C O 0 0.000 0.000)\n*|I (Q1:BASE Q1 BASE B 0 2.000 0.000)\n"
              "*|I (M2:GATE M2 GATE I 0 3.000 0.000)\nR5_0 C Q1:BASE 1.000000\n"
              "R5_1 C M2:GATE 1.000000\nR5_2 Q1:BASE M2:GATE 1.000000\n\n\n"
              "*\n*Instance Section\n*\nM1 A B 99 C nch w=1 l=2 \nD3_a A d3:CATHODE dio \n"
              "top/XU5 dU5:COLL dU5:BASE dU5:EMIT npn \nXU6 dU6:ANODE dU6:CATHODE dio2 \n"
              "XU7 dU7:DRN dU7:GATE dU7:SRC dU7:BULK mos \n* extra\n.ENDS\n");
    EXPECT_FALSE(RDspfWriter().write((dir / "no" / "x.spf").string(), nets, {1}, {"top", {}}, {}));
}

TEST(DspfReader, ReadsAnotherToolsDialect) {
    RDspfLoader loader;
    loader.scale = 0.001;
    std::vector<RNetwork> nets;
    loader.load(kInverter.string(), nets);
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
    EXPECT_EQ(nets[2].name, "OUT");
    EXPECT_EQ(nets[2].nodeCount(), 3);
    EXPECT_EQ(nets[2].res_value, (std::vector<double>{5, 5, 100}));
}

TEST(DspfReader, MalformedLinesEndTheLoadWithTheirTexts) {
    const auto dir = rtest::tempDir();
    const std::string good = rtest::readText(kInverter);
    auto afterR3 = [&](const std::string& lines) {
        std::string s = good;
        return s.insert(s.find("R3 IN:1 MP1:GATE 30.0\n") + 22, lines);
    };
    const std::vector<std::pair<std::string, std::string>> cases = {
        {afterR3("R7 IN:1 MN1:G\n"), "Unrecognized spf line: R7 IN:1 MN1:G"},
        {afterR3("R7 IN:1 nowhere 3\n"), "Unrecognized node name: nowhere"},
        {afterR3("R7 IN:1 MN1:G 3ohm\n"), "Invalid resistance value: R7 IN:1 MN1:G 3ohm"},
        {afterR3("X1 garbage\n"), "Unrecognized spf line: X1 garbage"},
        {afterR3("*|Q (x 1 2)\n"), "Unrecognized spf line: *|Q (x 1 2)"},
        {afterR3("*|S\n"), "Unrecognized spf line: *|S"},
        {good.substr(0, good.find(".ENDS")), "\".ENDS\" is missing"},
        {good.substr(0, good.find("*|NET")), "\".ENDS\" is missing"},
    };
    for (const auto& [text, message] : cases) {
        rtest::writeText(dir / "bad.spf", text);
        std::vector<RNetwork> nets(7);
        try {
            RDspfLoader().load((dir / "bad.spf").string(), nets);
            ADD_FAILURE() << "loaded: " << message;
        } catch (const std::runtime_error& e) {
            EXPECT_THAT(e.what(), HasSubstr(message));
        }
        EXPECT_EQ(nets.size(), 7u);
    }
    std::vector<RNetwork> nets;
    EXPECT_THROW(RDspfLoader().load((dir / "missing.spf").string(), nets), std::runtime_error);
}
