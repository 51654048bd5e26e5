// The query command file: the write forms in any case, response blocks, paths relative to the file,
// and the malformed files that throw, with what the checked form reports for them; no truncated
// file makes a checked reader throw.
#include <map>
#include <stdexcept>
#include <vector>

#include "jobs_test_util.h"

namespace {

class QueryCmd : public jobs_test::JobFileTest {
protected:
    // Reads `text` as a query file named `name`; returns the result, keeps the logger's output.
    bool read(const std::string& text, Task& t, const std::string& name = "query.cmd") {
        path = write(name, text);
        return logged([&] { return TextParser::parseQueryCmd(path, t); });
    }
    std::string path;
};

}  // namespace

TEST_F(QueryCmd, FormsAndBlocksSetPathsRelativeToTheQueryFile) {
    Task t;
    ASSERT_TRUE(
        read("LAYOUT PATH top.gds\n# GDS WRITE commented.gds\nGDS MAP\nGDS WRITE\n\n"
             "gds write first.gds\nGDS WRITE out.gds\n"  // the last one wins
             "Layout Netlist Write  lvs/top.net  extra words\n"
             "LAYOUT NAMETABLE WRITE /abs/names.txt\n"
             "LAYOUT SEPARATED PROPERTIES WRITE my props.txt\nPORT TABLE CELLS WRITE ports.txt\n"
             "RESPONSE FILE maps/gds.map\nGDS MAP\nRESPONSE DIRECT\n"
             "RESPONSE FILE both.txt\nresponse direct\n"  // an empty block sets nothing
             "RESPONSE FILE dev.tbl\nDevice Table\nLAYOUT NETLIST WRITE inside.net\n"
             "RESPONSE DIRECT now\n",
             t, "query files/run 2/q.cmd"));
    const std::string folder = (dir / "query files" / "run 2").string() + "/";
    EXPECT_EQ(t.gds_file, folder + "out.gds");
    EXPECT_EQ(t.layout_netlist_file, folder + "lvs/top.net");  // a block holds no write forms
    EXPECT_EQ(t.layout_nametable_file, "/abs/names.txt");
    EXPECT_EQ(t.separated_properties_file, folder + "my");  // a path is one word
    EXPECT_EQ(t.port_table_file, folder + "ports.txt");
    EXPECT_EQ(t.gds_map_file, folder + "maps/gds.map");
    EXPECT_EQ(t.device_table_file, folder + "dev.tbl");
    EXPECT_EQ(log, "");
}

TEST_F(QueryCmd, MalformedFilesThrowAndTheCheckedFormSaysWhere) {
    const std::string block1 =
        "the closing \"RESPONSE DIRECT\" of the response block opened on line 1";
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"RESPONSE FILE m.txt\nGDS MAP\n", 2, block1 + " (the file ends)"},
        {"RESPONSE FILE m.txt\nGDS MAP\n\nRESPONSE DIRECT\n", 3, "a command, or " + block1},
        {"RESPONSE FILE m.txt\nRESPONSE\n", 2, "\"DIRECT\" after \"RESPONSE\" (" + block1 + ")"},
        {"GDS WRITE a.gds\nlayout netlist write\n", 2, "the path after \"LAYOUT NETLIST WRITE\""},
        {"LAYOUT NAMETABLE WRITE\n", 1, "the path after \"LAYOUT NAMETABLE WRITE\""},
        {"LAYOUT SEPARATED PROPERTIES\n", 1,
         "\"WRITE\" and a path after \"LAYOUT SEPARATED PROPERTIES\""},
        {"\n\nPORT TABLE CELLS WRITE\n", 3, "\"WRITE\" and a path after \"PORT TABLE CELLS\""},
    };
    for (const auto& [text, line, wanted] : cases) {
        SCOPED_TRACE(text);
        Task t;
        EXPECT_THROW(read(text, t), std::out_of_range);
        std::string error;
        EXPECT_FALSE(logged([&] { return TextParser::readQueryCmd(path, t, &error); }));
        const std::string want = "Malformed QUERY_CMD file \"" + path + "\", line " +
                                 std::to_string(line) + ": missing " + wanted + ".";
        EXPECT_EQ(error, want);
        EXPECT_EQ(log, "[ERROR] " + want + "\n");
    }
    const std::string nowhere = (dir / "absent.cmd").string();
    for (bool checked : {false, true}) {
        Task t;
        EXPECT_FALSE(logged([&] {
            return checked ? TextParser::readQueryCmd(nowhere, t)
                           : TextParser::parseQueryCmd(nowhere, t);
        }));
        EXPECT_EQ(log, "[ERROR] Can not open QUERY_CMD file \"" + nowhere + "\".\n");
    }
}

TEST_F(QueryCmd, EveryTruncationReadsOrFailsWithoutThrowing) {
    const std::string query =
        "GDS WRITE out.gds\nLAYOUT NETLIST WRITE top.net\nLAYOUT NAMETABLE WRITE names.txt\n"
        "LAYOUT SEPARATED PROPERTIES WRITE props.txt\nPORT TABLE CELLS WRITE ports.txt\n"
        "RESPONSE FILE gds.map\nGDS MAP\nDEVICE TABLE\nRESPONSE DIRECT\n";
    for (const std::string& valid : {query, std::string("# nets\n1 VDD\n12 clk extra\n")})
        for (size_t n = 0; n <= valid.size(); ++n) {
            path = write("cut.txt", valid.substr(0, n));
            Task t;
            std::map<std::int32_t, std::string> names;
            EXPECT_NO_THROW(logged([&] {
                return TextParser::readQueryCmd(path, t) + TextParser::readNetName(path, names) +
                       TextParser::parseDravixCmd(path.c_str(), t);
            })) << n;
        }
}
