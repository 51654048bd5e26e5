// The net name file and the port table: comments, first-wins numbers, the port filter rules.
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "jobs/text_parser.h"
#include "jobs_test_util.h"
#include "runtime/pargument.h"

using jobs_test::JobFileTest;
using NetNames = std::map<std::int32_t, std::string>;

namespace {

class NetTables : public JobFileTest {};

std::string describe(const std::vector<PortEntry>& ports) {
    std::string s;
    for (const PortEntry& p : ports)
        s += p.alias + "," + std::to_string(p.number_1) + "," + p.name + "," +
             std::to_string(p.number_3) + "," + std::to_string(p.number_4) + "," + p.text_5 + ";";
    return s;
}

}  // namespace

TEST_F(NetTables, NetNamesFirstLineForANumberWins) {
    NetNames names = {{99, "stale"}};
    ASSERT_TRUE(TextParser::parseNetName(write("nets.txt",
                                               "# header\n"
                                               "%  also a comment\n"
                                               "\n"
                                               "12 clk extra\n"
                                               "12 other\n"
                                               "  7\tdata_in\n"
                                               "-3 neg\n"
                                               "x zero\n"
                                               "4294967297 wraps\n"),
                                         names));
    // 4294967297 = 2^32 + 1 is cut to 32 bits.
    EXPECT_EQ(names,
              (NetNames{{12, "clk"}, {7, "data_in"}, {-3, "neg"}, {0, "zero"}, {1, "wraps"}}));
}

TEST_F(NetTables, NetNameLineOfOneWordThrowsAndIsReportedByTheCheckedForm) {
    const std::string path = write("nets.txt", "1 a\n\n2\n3 c\n");
    NetNames names;
    EXPECT_THROW(TextParser::parseNetName(path, names), std::out_of_range);
    std::string error;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(TextParser::readNetName(path, names, &error));
    const std::string printed = testing::internal::GetCapturedStdout();
    const std::string want = "Malformed net name file \"" + path +
                             "\", line 3: missing the net name after the number 2.";
    EXPECT_EQ(error, want);
    EXPECT_EQ(printed, "[ERROR] " + want + "\n");

    const std::string absent = (dir / "none.txt").string();
    testing::internal::CaptureStdout();
    EXPECT_FALSE(TextParser::readNetName(absent, names, &error));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[ERROR] Can not open net name file \"" + absent + "\".\n");
}

TEST_F(NetTables, PortTableIsAFilter) {
    const std::string path = write("ports.txt",
                                   "A 1 A 3 4 in TOP\n"
                                   "% 1 % 3 4 x TOP\n"             // "%" is a plain word here
                                   "B 2 b 3 4 out TOP\n"           // alias differs from name
                                   "C 5 C 6 7 io OTHER\n"          // another cell
                                   "C 5 C 6 7 io top\n"            // cell names are exact
                                   "D 5 D 6 7 io TOP x\n"          // eight words
                                   "E 5 E 6\n"                     // four words
                                   "F z F 6 7 io TOP\n"            // no number
                                   "G 5 G 99999999999 7 io TOP\n"  // out of range
                                   "H -5 H 0x10 +7 io TOP\n");     // stoi reads "0x10" as 0
    std::vector<PortEntry> ports = {PortEntry{}};
    ASSERT_TRUE(TextParser::parsePortTable(path, ports, "TOP"));
    EXPECT_EQ(describe(ports), "A,1,A,3,4,in;%,1,%,3,4,x;H,-5,H,0,7,io;");

    PARG::regArgument("CELL_USERPORT_MATCHING_RULE", "0");
    ASSERT_TRUE(TextParser::parsePortTable(path, ports, "TOP"));
    EXPECT_EQ(describe(ports), "A,1,A,3,4,in;%,1,%,3,4,x;B,2,b,3,4,out;H,-5,H,0,7,io;");

    ASSERT_TRUE(TextParser::parsePortTable(path, ports, "OTHER"));
    EXPECT_EQ(describe(ports), "C,5,C,6,7,io;");

    const std::string absent = (dir / "none.txt").string();
    testing::internal::CaptureStdout();
    EXPECT_FALSE(TextParser::parsePortTable(absent, ports, "TOP"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[ERROR] Can not open port table file \"" + absent + "\".\n");
    EXPECT_TRUE(ports.empty());
}
