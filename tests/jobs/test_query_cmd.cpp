// The query command file: the write forms in any case, response blocks, paths relative to the file,
// and the malformed files that throw, with what the checked form reports for them.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "jobs/text_parser.h"
#include "jobs_test_util.h"

using jobs_test::JobFileTest;

namespace {

class QueryCmd : public JobFileTest {
protected:
    // Reads `text` as a query file named `name`; returns the result, keeps the logger's output.
    bool read(const std::string& text, Task& t, const std::string& name = "query.cmd") {
        path = write(name, text);
        testing::internal::CaptureStdout();
        bool ok = false;
        try {
            ok = TextParser::parseQueryCmd(path, t);
        } catch (...) {
            testing::internal::GetCapturedStdout();
            throw;
        }
        log = testing::internal::GetCapturedStdout();
        return ok;
    }
    std::string path, log;
};

}  // namespace

TEST_F(QueryCmd, EveryFormSetsItsPathRelativeToTheQueryFile) {
    Task t;
    ASSERT_TRUE(
        read("LAYOUT PATH top.gds\n"  // the input of the run: not a form
             "gds write out.gds\n"
             "Layout Netlist Write  lvs/top.net  extra words\n"
             "LAYOUT NAMETABLE WRITE /abs/names.txt\n"
             "LAYOUT SEPARATED PROPERTIES WRITE props.txt\n"
             "PORT TABLE CELLS WRITE ports.txt\n"
             "RESPONSE FILE maps/gds.map\n"
             "GDS MAP\n"
             "RESPONSE DIRECT\n"
             "RESPONSE FILE dev.tbl\n"
             "DEVICE TABLE\n"
             "RESPONSE DIRECT\n",
             t, "query files/run 2/q.cmd"));
    const std::string folder = (dir / "query files" / "run 2").string() + "/";
    EXPECT_EQ(t.gds_file, folder + "out.gds");
    EXPECT_EQ(t.layout_netlist_file, folder + "lvs/top.net");
    EXPECT_EQ(t.layout_nametable_file, "/abs/names.txt");
    EXPECT_EQ(t.separated_properties_file, folder + "props.txt");
    EXPECT_EQ(t.port_table_file, folder + "ports.txt");
    EXPECT_EQ(t.gds_map_file, folder + "maps/gds.map");
    EXPECT_EQ(t.device_table_file, folder + "dev.tbl");
    EXPECT_EQ(log, "");
}

TEST_F(QueryCmd, ResponseBlocksAndSkippedLines) {
    Task t;
    ASSERT_TRUE(
        read("# GDS WRITE commented.gds\n"
             "GDS MAP\n"    // two words outside a block: skipped
             "GDS WRITE\n"  // two words: skipped
             "\n"           // outside a block an empty line is fine
             "GDS WRITE first.gds\n"
             "GDS WRITE second.gds\n"  // the last one wins
             "RESPONSE FILE both.txt\n"
             "response direct\n"  // an empty block sets nothing
             "RESPONSE FILE both.txt\n"
             "gds map\n"
             "LAYOUT NETLIST WRITE inside.net\n"  // a block holds no write forms
             "Device Table\n"
             "RESPONSE DIRECT now\n"
             "RESPONSE FILE other.txt\n"
             "LVS REPORT x\n"
             "RESPONSE DIRECT\n",
             t));
    const std::string folder = dir.string() + "/";
    EXPECT_EQ(t.gds_file, folder + "second.gds");
    EXPECT_EQ(t.gds_map_file, folder + "both.txt");
    EXPECT_EQ(t.device_table_file, folder + "both.txt");
    EXPECT_EQ(t.layout_netlist_file, "");
}

TEST_F(QueryCmd, PathWithBlanksKeepsItsFirstWord) {
    Task t;
    ASSERT_TRUE(read("GDS WRITE my layout.gds\n", t));
    EXPECT_EQ(t.gds_file, dir.string() + "/my");
}

TEST_F(QueryCmd, MalformedFilesThrowAndTheCheckedFormSaysWhere) {
    struct Case {
        std::string text;
        int line;
        std::string wanted;
    };
    const std::string block1 =
        "the closing \"RESPONSE DIRECT\" of the response block opened on line 1";
    const std::vector<Case> cases = {
        {"RESPONSE FILE m.txt\nGDS MAP\n", 2, block1 + " (the file ends)"},
        {"RESPONSE FILE m.txt\nGDS MAP\n\nRESPONSE DIRECT\n", 3, "a command, or " + block1},
        {"RESPONSE FILE m.txt\nRESPONSE\n", 2, "\"DIRECT\" after \"RESPONSE\" (" + block1 + ")"},
        {"GDS WRITE a.gds\nlayout netlist write\n", 2, "the path after \"LAYOUT NETLIST WRITE\""},
        {"LAYOUT NAMETABLE WRITE\n", 1, "the path after \"LAYOUT NAMETABLE WRITE\""},
        {"LAYOUT SEPARATED PROPERTIES\n", 1,
         "\"WRITE\" and a path after \"LAYOUT SEPARATED PROPERTIES\""},
        {"LAYOUT SEPARATED PROPERTIES WRITE\n", 1,
         "\"WRITE\" and a path after \"LAYOUT SEPARATED PROPERTIES\""},
        {"\n\nPORT TABLE CELLS WRITE\n", 3, "\"WRITE\" and a path after \"PORT TABLE CELLS\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        Task t;
        EXPECT_THROW(read(c.text, t), std::out_of_range);

        Task checked;
        std::string error;
        testing::internal::CaptureStdout();
        EXPECT_FALSE(TextParser::readQueryCmd(path, checked, &error));
        const std::string printed = testing::internal::GetCapturedStdout();
        const std::string want = "Malformed QUERY_CMD file \"" + path + "\", line " +
                                 std::to_string(c.line) + ": missing " + c.wanted + ".";
        EXPECT_EQ(error, want);
        EXPECT_EQ(printed, "[ERROR] " + want + "\n");
    }
    // A well-formed file goes through the checked form unchanged.
    Task t;
    std::string error = "untouched";
    ASSERT_TRUE(read("GDS WRITE a.gds\n", t));
    EXPECT_TRUE(TextParser::readQueryCmd(path, t, &error));
    EXPECT_EQ(error, "untouched");
    EXPECT_EQ(t.gds_file, dir.string() + "/a.gds");
}

TEST_F(QueryCmd, MissingFileIsReported) {
    Task t;
    const std::string nowhere = (dir / "absent.cmd").string();
    for (bool checked : {false, true}) {
        testing::internal::CaptureStdout();
        EXPECT_FALSE(checked ? TextParser::readQueryCmd(nowhere, t)
                             : TextParser::parseQueryCmd(nowhere, t));
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "[ERROR] Can not open QUERY_CMD file \"" + nowhere + "\".\n");
    }
}

TEST_F(QueryCmd, JobFileLeadsToTheQueryFile) {
    // The job file names the query file relative to itself; the query file's paths are relative
    // to the query file.
    write("job/run.cmd", "QUERY_CMD ../verify/q.cmd\n");
    write("verify/q.cmd", "GDS WRITE out/top.gds\n");
    Task t;
    testing::internal::CaptureStdout();
    ASSERT_TRUE(TextParser::parseDravixCmd((dir / "job/run.cmd").c_str(), t));
    ASSERT_TRUE(TextParser::readQueryCmd(t.query_cmd, t));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(t.gds_file, (dir / "verify/out/top.gds").string());
}
