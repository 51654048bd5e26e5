// The net name file and the port table: comments, first-wins numbers, the port filter rules.
#include <map>
#include <stdexcept>
#include <vector>

#include "jobs_test_util.h"

using NetNames = std::map<std::int32_t, std::string>;
using NetTables = jobs_test::JobFileTest;

TEST_F(NetTables, NetNamesFirstLineForANumberWinsAndAOneWordLineThrows) {
    NetNames names = {{99, "stale"}};
    ASSERT_TRUE(TextParser::parseNetName(
        write("nets.txt",
              "# header\n%  comment\n\n12 clk extra\n12 other\n  7\tdata_in\n"
              "x zero\n4294967297 wraps\n"),  // 2^32 + 1 is cut to 32 bits
        names));
    EXPECT_EQ(names, (NetNames{{12, "clk"}, {7, "data_in"}, {0, "zero"}, {1, "wraps"}}));

    const std::string path = write("bad.txt", "1 a\n\n2\n3 c\n");
    EXPECT_THROW(TextParser::parseNetName(path, names), std::out_of_range);
    std::string error;
    EXPECT_FALSE(logged([&] { return TextParser::readNetName(path, names, &error); }));
    const std::string want = "Malformed net name file \"" + path +
                             "\", line 3: missing the net name after the number 2.";
    EXPECT_EQ(error, want);
    EXPECT_EQ(log, "[ERROR] " + want + "\n");
}

TEST_F(NetTables, PortTableIsAFilter) {
    const std::string path = write("ports.txt",
                                   "A 1 A 3 4 in TOP\n"
                                   "B 2 b 3 4 out TOP\n"           // alias differs from name
                                   "C 5 C 6 7 io OTHER\n"          // another cell
                                   "C 5 C 6 7 io top\n"            // cell names are exact
                                   "D 5 D 6 7 io TOP x\n"          // eight words
                                   "F z F 6 7 io TOP\n"            // no number
                                   "G 5 G 99999999999 7 io TOP\n"  // out of range
                                   "H -5 H 0x10 +7 io TOP\n");     // stoi reads "0x10" as 0
    auto filtered = [&](const std::string& cell) {
        std::vector<PortEntry> ports = {PortEntry{}};
        EXPECT_TRUE(TextParser::parsePortTable(path, ports, cell));
        std::string s;
        for (const PortEntry& p : ports)
            s += p.alias + "," + std::to_string(p.number_1) + "," + p.name + "," +
                 std::to_string(p.number_3) + "," + std::to_string(p.number_4) + "," + p.text_5 +
                 ";";
        return s;
    };
    EXPECT_EQ(filtered("TOP"), "A,1,A,3,4,in;H,-5,H,0,7,io;");
    EXPECT_EQ(filtered("OTHER"), "C,5,C,6,7,io;");
    PARG::regArgument("CELL_USERPORT_MATCHING_RULE", "0");
    EXPECT_EQ(filtered("TOP"), "A,1,A,3,4,in;B,2,b,3,4,out;H,-5,H,0,7,io;");

    const std::string absent = (dir / "none.txt").string();
    std::vector<PortEntry> ports(1);
    EXPECT_FALSE(logged([&] { return TextParser::parsePortTable(absent, ports, "TOP"); }));
    EXPECT_EQ(log, "[ERROR] Can not open port table file \"" + absent + "\".\n");
    EXPECT_TRUE(ports.empty());
}
