// The GDS writer and the picture tools as a user runs them. Files are read back by KLayout, an
// independent reader (tests named KLayout*, skipped where it is not installed); the rest checks
// karven-gds's answers to bad input and the plot script's labels against hand values.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "geometry/gds_writer.h"

namespace fs = std::filesystem;
using json = nlohmann::json;

namespace {

class ToolTest : public testing::Test {
protected:
    // One folder a test: ctest runs each test in a process of its own.
    void SetUp() override { fs::create_directories(dir_); }
    void TearDown() override { fs::remove_all(dir_); }

    std::string file(const std::string& name) const { return (dir_ / name).string(); }

    // Runs `command` with both streams into `output_`; returns the exit status.
    int run(const std::string& command) {
        const int status = std::system((command + " > " + file("log.txt") + " 2>&1").c_str());
        std::ifstream in(file("log.txt"));
        output_.assign(std::istreambuf_iterator<char>(in), {});
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // What KLayout reads from a GDS file, as dumped by read_gds.py; null without KLayout.
    json readBack(const std::string& gds) {
        if (std::system("klayout -v > /dev/null 2>&1") != 0) return json();
        const int status =
            run("klayout -b -r " GDS_READER " -rd gds=" + gds + " -rd out=" + file("r.json"));
        // KLayout warns about, then tolerates, records a conforming file must not have (an odd
        // length, say): any warning is a defect of the writer.
        EXPECT_TRUE(status == 0 && output_.find("Warning") == std::string::npos) << output_;
        return json::parse(std::ifstream(file("r.json")));
    }

    fs::path dir_ = fs::path(testing::TempDir()) / ("gds_tools_" + std::to_string(getpid()));
    std::string output_;
};

// Two samples drawn by hand: wires on two heights (0.3..0.43 and 1.26..1.54, M1 and M4 of the
// example stack) and the plate of a 20 um window. Ids 3 and 5; matrices symmetric.
const char* kSamples =
    R"({"capacitances":[0.2,-0.05,-0.15,-0.05,0.3,-0.25,-0.15,-0.25,0.4],)"
    R"("conductors":[[0.0,0.365,0.26,0.13],[1.0,1.4,0.28,0.28],[0.0,-0.05,20.0,0.1]],)"
    R"("id":3,"size":3})"
    "\n"
    R"({"capacitances":[0.5,-0.5,-0.5,0.5],"conductors":[[-2.5,1.4,0.14,0.28],)"
    R"([0.0,-0.05,20.0,0.1]],"id":5,"size":2})"
    "\n";

}  // namespace

TEST_F(ToolTest, KLayoutReadsWhatTheWriterWrote) {
    GdsWriter gds;
    gds.openFile(file("w.gds"));
    gds.writeGdsHead("cell", 1e-4, 1e-10);
    const int g = 2000000000;
    gds.writeBoundary(1, {{g, -g}, {g + 10, -g}, {g + 10, -g + 10}, {g, -g}}, 2);
    gds.writeBoundaryWithThickness(4, {{0, 0}, {1000, 0}, {0, 2000}, {0, 0}}, 12.5, 10.0, 0.25, 1);
    gds.writeText(9, 4, {5, -7}, "odd");  // odd length: padded
    gds.writeNextStructure("top");
    gds.writeReference("cell", {100, -200});
    gds.writeGdsTail();
    ASSERT_FALSE(gds.fail());

    json r = readBack(file("w.gds"));
    if (r.is_null()) GTEST_SKIP() << "klayout is not installed";
    EXPECT_NEAR(r["dbu"].get<double>(), 1e-4, 1e-12);  // 1e-10 m in micrometres
    EXPECT_EQ(r["cells"]["top"]["refs"], json::parse(R"([["cell", 100, -200]])"));
    // Property values hold the last digit before the point only; KLayout drops the NUL.
    EXPECT_EQ(r["cells"]["cell"]["boundaries"], json::parse(R"({
        "1": {"datatype": 2, "properties": {}, "points": [[2000000000, -2000000000],
              [2000000010, -2000000000], [2000000010, -1999999990]]},
        "4": {"datatype": 1, "points": [[0, 0], [0, 2000], [1000, 0]],
              "properties": {"100": "2.5000000", "101": "10.000000", "102": "0.2500000"}}})"));
    EXPECT_EQ(r["cells"]["cell"]["texts"],
              json::parse(R"({"9": {"texttype": 4, "string": "odd", "x": 5, "y": -7}})"));
}

TEST_F(ToolTest, KLayoutReadsKarvenGdsOutput) {
    std::ofstream(file("s.jsonl")) << kSamples;
    ASSERT_EQ(run(KARVEN_GDS " " + file("s.jsonl") + " --ids 5 3 -o " + file("s.gds") +
                  " --ctf " KARVEN_SOURCE_DIR "/examples/stack.ctf"),
              0)
        << output_;
    json r = readBack(file("s.gds"));
    if (r.is_null()) GTEST_SKIP() << "klayout is not installed";
    EXPECT_NEAR(r["dbu"].get<double>(), 0.001, 1e-12);  // nanometres
    // A row: sample 5 first, sample 3 to its right, apart by a tenth of a 20 um window.
    EXPECT_EQ(r["cells"]["samples"]["refs"],
              json::parse(R"([["sample_5", 10000, 0], ["sample_3", 32000, 0]])"));
    // Layers by the stack: M1 is 1 and M4 is 4; the plate is layer 0.
    json s3 = r["cells"]["sample_3"];
    for (const auto& [layer, corners] :
         {std::pair{"1", "[[-130, 300], [-130, 430], [130, 300], [130, 430]]"},
          {"4", "[[860, 1260], [860, 1540], [1140, 1260], [1140, 1540]]"},
          {"0", "[[-10000, -100], [-10000, 0], [10000, -100], [10000, 0]]"}})
        EXPECT_EQ(s3["boundaries"][layer]["points"], json::parse(corners)) << layer;
    // Labels: index and the diagonal of the matrix, at the conductor's centre, on its layer.
    EXPECT_EQ(s3["texts"]["4"],
              json::parse(R"({"texttype": 0, "string": "1 C=0.3", "x": 1000, "y": 1400})"));
}

TEST_F(ToolTest, KarvenGdsRejectsBadInput) {
    const std::string two = R"({"capacitances":[1,-1,-1,1],"conductors":[[)";
    const std::string stack = " --ctf " KARVEN_SOURCE_DIR "/examples/stack.ctf";
    for (const auto& [input, args, message] : std::vector<std::array<std::string, 3>>{
             // the input (empty: no file at all), more arguments, a part of the message
             {"", "", "Unable to open file"},
             {std::string(kSamples) + "{\"id\": 7,\n", "", ":3: not valid JSON"},
             {R"({"conductors":[[0,0,1,1]],"id":1,"size":1})", "", "no key \"capacitances\""},
             {two + R"(3e6,0.5,1,0.2],[0,-0.05,20,0.1]],"id":1,"size":2})", "", "out of range"},
             {kSamples, " --ids 3 9", "no sample with id 9"},
             {two + R"(0,0.5,1,0.2],[0,-0.05,20,0.1]],"id":1,"size":2})", stack,
              "lies on no conductor layer"}}) {
        const std::string path = file(input.empty() ? "absent.jsonl" : "in.jsonl");
        if (!input.empty()) std::ofstream(path) << input;
        EXPECT_NE(run(KARVEN_GDS " " + path + " -o " + file("out.gds") + args), 0) << message;
        EXPECT_NE(output_.find(message), std::string::npos) << output_;
    }
}

TEST_F(ToolTest, PlotScriptDrawsAndLabelsTheSamples) {
    if (std::system("/usr/bin/python3 -c 'import matplotlib' > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "python3-matplotlib is not installed";
    std::ofstream(file("s.jsonl")) << kSamples;
    const std::string script = KARVEN_SOURCE_DIR "/scripts/plot-samples.py " + file("s.jsonl") +
                               " --ctf " KARVEN_SOURCE_DIR "/examples/stack.ctf --karven-stack " +
                               KARVEN_STACK " -o " + file("pictures");
    ASSERT_EQ(run(script + " --ids 3"), 0) << output_;
    // Layers from the heights, the diagonal as total, and the largest off-diagonal magnitude: for
    // wire 0 that is |-0.15| to the plate, for wire 1 |-0.25| to the plate.
    for (const char* line : {"sample 3 conductor 0 M1 z 0.3..0.43 C=0.2 max_coupling=0.15 to 2",
                             "sample 3 conductor 1 M4 z 1.26..1.54 C=0.3 max_coupling=0.25 to 2",
                             "sample 3 conductor 2 plate z -0.1..0 C=0.4 max_coupling=0.25 to 1"})
        EXPECT_NE(output_.find(line), std::string::npos) << line << "\n" << output_;
    std::ifstream png(file("pictures/sample_3.png"), std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(png), {}).substr(0, 8),
              "\x89PNG\r\n\x1a\n");
}
