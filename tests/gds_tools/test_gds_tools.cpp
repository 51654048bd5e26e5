// The GDS writer and the picture tools as a user runs them. Files are read back by KLayout, an
// independent reader (tests named KLayout*, skipped where it is not installed); the rest checks
// the tools' answers to bad input and the stack and labels they report against hand values.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "geometry/gds_writer.h"

namespace fs = std::filesystem;
using json = nlohmann::json;

namespace {

bool haveKLayout() {
    return std::system("klayout -v > /dev/null 2>&1") == 0;
}
bool haveMatplotlib() {
    return std::system("/usr/bin/python3 -c 'import matplotlib' > /dev/null 2>&1") == 0;
}

class ToolTest : public testing::Test {
protected:
    void SetUp() override {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::path(testing::TempDir()) /
               ("gds_tools_" + std::string(info->name()) + "_" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string file(const std::string& name) const { return (dir_ / name).string(); }

    // Runs `command` with both streams into `output_`; returns the exit status.
    int run(const std::string& command) {
        const int status = std::system((command + " > " + file("log.txt") + " 2>&1").c_str());
        std::ifstream in(file("log.txt"));
        output_.assign(std::istreambuf_iterator<char>(in), {});
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // What KLayout reads from a GDS file, as dumped by read_gds.py.
    json readBack(const std::string& gds) {
        const std::string out = file("readback.json");
        EXPECT_EQ(run("klayout -b -r " GDS_READER " -rd gds=" + gds + " -rd out=" + out), 0)
            << output_;
        // KLayout warns about, and then tolerates, records a conforming file must not have
        // (an odd length, say): any warning is a defect of the writer.
        EXPECT_EQ(output_.find("Warning"), std::string::npos) << output_;
        std::ifstream in(out);
        return json::parse(in);
    }

    fs::path dir_;
    std::string output_;
};

using Points = std::vector<std::pair<int, int>>;

// A boundary's corners as a sorted set: KLayout starts the hull elsewhere and drops the
// closing point.
Points corners(Points points) {
    if (points.size() > 1 && points.front() == points.back()) points.pop_back();
    std::sort(points.begin(), points.end());
    return points;
}

Points corners(const json& boundary) {
    Points points;
    for (const json& p : boundary["points"]) points.emplace_back(p[0], p[1]);
    return corners(points);
}

// Finds the element of `list` whose `key` is `value`; fails the test when there is none.
json find(const json& list, const std::string& key, const json& value) {
    for (const json& e : list)
        if (e[key] == value) return e;
    ADD_FAILURE() << "no element with " << key << " = " << value.dump();
    return json::object();
}

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
    if (!haveKLayout()) GTEST_SKIP() << "klayout is not installed";
    const Points triangle = {{0, 0}, {1000, 0}, {0, 2000}, {0, 0}};
    const Points ell = {{-5000, -5000}, {3000, -5000}, {3000, -4000}, {-4000, -4000},
                        {-4000, 7000},  {-5000, 7000}, {-5000, -5000}};
    const Points far = {{2000000000, -2000000000},
                        {2000000010, -2000000000},
                        {2000000010, -1999999990},
                        {2000000000, -1999999990},
                        {2000000000, -2000000000}};
    GdsWriter gds;
    gds.openFile(file("w.gds"));
    gds.writeGdsHead("cell", 1e-4, 1e-10);  // odd name length: padded
    gds.writeBoundary(3, triangle, 7);
    gds.writeBoundary(200, ell, 0);
    gds.writeBoundary(1, far, 2);
    gds.writeBoundaryWithThickness(4, triangle, 12.5, 10.0, 0.25, 1);
    gds.writeText(9, 4, {5, -7}, "odd");
    gds.writeText(10, 0, {-123456, 654321}, "a label of even size");
    gds.writeNextStructure("top");
    gds.writeReference("cell", {100, -200});
    gds.writeGdsTail();
    ASSERT_FALSE(gds.fail());

    const json r = readBack(file("w.gds"));
    EXPECT_NEAR(r["dbu"].get<double>(), 1e-4, 1e-12);  // 1e-10 m in micrometres
    EXPECT_EQ(r["libname"], "lvs.db");
    EXPECT_EQ(r["top_cells"], json({"top"}));
    ASSERT_TRUE(r["cells"].contains("cell")) << r.dump();
    EXPECT_EQ(r["cells"]["top"]["refs"], json::parse(R"([{"cell":"cell","x":100,"y":-200}])"));

    const json& cell = r["cells"]["cell"];
    ASSERT_EQ(cell["boundaries"].size(), 4u);
    const struct {
        int layer, datatype;
        Points points;
        json properties;
    } boundaries[] = {
        {3, 7, triangle, json::object()},
        {200, 0, ell, json::object()},
        {1, 2, far, json::object()},
        // Property values hold the last digit before the point only; KLayout drops the NUL.
        {4, 1, triangle, {{"100", "2.5000000"}, {"101", "10.000000"}, {"102", "0.2500000"}}},
    };
    for (const auto& b : boundaries) {
        const json got = find(cell["boundaries"], "layer", b.layer);
        EXPECT_EQ(got["datatype"], b.datatype) << b.layer;
        EXPECT_EQ(corners(got), corners(b.points)) << b.layer;
        EXPECT_EQ(got["properties"], b.properties) << b.layer;
    }
    const json texts = json::parse(R"([
        {"layer": 9, "texttype": 4, "string": "odd", "x": 5, "y": -7},
        {"layer": 10, "texttype": 0, "string": "a label of even size", "x": -123456,
         "y": 654321}])");
    ASSERT_EQ(cell["texts"].size(), 2u);
    for (const json& t : texts) EXPECT_EQ(find(cell["texts"], "layer", t["layer"]), t);
}

TEST_F(ToolTest, KLayoutReadsKarvenGdsOutput) {
    if (!haveKLayout()) GTEST_SKIP() << "klayout is not installed";
    std::ofstream(file("s.jsonl")) << kSamples;
    // Layers by height band: 0.3..0.43 is layer 1, 1.26..1.54 layer 2; with the stack, M1 is 1
    // and M4 is 4. The plate is layer 0 either way.
    const struct {
        std::string ctf;
        int low, high;
    } cases[] = {{"", 1, 2}, {" --ctf " KARVEN_SOURCE_DIR "/examples/stack.ctf", 1, 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ctf);
        ASSERT_EQ(run(KARVEN_GDS " " + file("s.jsonl") + " --ids 5 3 -o " + file("s.gds") + c.ctf),
                  0)
            << output_;
        const json r = readBack(file("s.gds"));
        EXPECT_NEAR(r["dbu"].get<double>(), 0.001, 1e-12);  // nanometres
        EXPECT_EQ(r["top_cells"], json({"samples"}));
        const json& refs = r["cells"]["samples"]["refs"];
        ASSERT_EQ(refs.size(), 2u);
        // A row: sample 5 first, sample 3 to its right, apart by a tenth of a 20 um window.
        EXPECT_EQ(refs[0], json::parse(R"({"cell":"sample_5","x":10000,"y":0})"));
        EXPECT_EQ(refs[1], json::parse(R"({"cell":"sample_3","x":32000,"y":0})"));

        const json& s3 = r["cells"]["sample_3"];
        ASSERT_EQ(s3["boundaries"].size(), 3u);
        const json wire0 = find(s3["boundaries"], "layer", c.low);
        EXPECT_EQ(corners(wire0),
                  corners(Points{{-130, 300}, {130, 300}, {130, 430}, {-130, 430}}));
        const json wire1 = find(s3["boundaries"], "layer", c.high);
        EXPECT_EQ(corners(wire1),
                  corners(Points{{860, 1260}, {1140, 1260}, {1140, 1540}, {860, 1540}}));
        const json plate = find(s3["boundaries"], "layer", 0);
        EXPECT_EQ(corners(plate),
                  corners(Points{{-10000, -100}, {10000, -100}, {10000, 0}, {-10000, 0}}));
        for (const json& b : s3["boundaries"]) EXPECT_EQ(b["datatype"], 0);

        // Labels: index and the diagonal of the matrix, at the conductor's centre, on its layer.
        const json texts = json::array({
            {{"layer", c.low}, {"texttype", 0}, {"string", "0 C=0.2"}, {"x", 0}, {"y", 365}},
            {{"layer", c.high}, {"texttype", 0}, {"string", "1 C=0.3"}, {"x", 1000}, {"y", 1400}},
            {{"layer", 0}, {"texttype", 0}, {"string", "2 C=0.4"}, {"x", 0}, {"y", -50}},
        });
        ASSERT_EQ(s3["texts"].size(), 3u);
        for (const json& t : texts) EXPECT_EQ(find(s3["texts"], "layer", t["layer"]), t);

        const json& s5 = r["cells"]["sample_5"];
        EXPECT_EQ(corners(find(s5["boundaries"], "layer", c.high)),
                  corners(Points{{-2570, 1260}, {-2430, 1260}, {-2430, 1540}, {-2570, 1540}}));
        EXPECT_EQ(find(s5["texts"], "layer", c.high)["string"], "0 C=0.5");
    }
}

TEST_F(ToolTest, KarvenGdsRejectsBadInput) {
    const std::string good = std::string(kSamples);
    const struct {
        const char* what;
        std::string content;  // empty: no file at all
        std::string args;
        std::string message;
    } cases[] = {
        {"missing file", "", "", "Unable to open file"},
        {"malformed line", good + "{\"id\": 7,\n", "", ":3: not valid JSON"},
        {"missing key", R"({"conductors":[[0,0,1,1]],"id":1,"size":1})", "",
         "no key \"capacitances\""},
        {"short matrix",
         R"({"capacitances":[1],"conductors":[[0,0,1,1],[0,2,1,1]],"id":1,"size":2})", "",
         "does not hold 4 numbers"},
        {"size differs", R"({"capacitances":[1],"conductors":[[0,0,1,1]],"id":1,"size":2})", "",
         "\"size\" is not the number of conductors"},
        {"bad conductor", R"({"capacitances":[1],"conductors":[[0,0,1]],"id":1,"size":1})", "",
         "not [cx, cy, w, h]"},
        {"empty file", "\n", "", "no samples"},
        {"beyond 32 bits of nm",
         R"({"capacitances":[1,-1,-1,1],"conductors":[[3e6,0.5,1,0.2],)"
         R"([0,-0.05,20,0.1]],"id":1,"size":2})",
         "", "out of range"},
        {"unknown id", good, " --ids 3 9", "no sample with id 9"},
        {"wire off the stack",
         R"({"capacitances":[1,-1,-1,1],"conductors":[[0,0.5,1,0.2],)"
         R"([0,-0.05,20,0.1]],"id":1,"size":2})",
         " --ctf " KARVEN_SOURCE_DIR "/examples/stack.ctf", "lies on no conductor layer"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string input = file(c.content.empty() ? "absent.jsonl" : "in.jsonl");
        if (!c.content.empty()) std::ofstream(input) << c.content;
        EXPECT_NE(run(KARVEN_GDS " " + input + " -o " + file("out.gds") + c.args), 0);
        EXPECT_NE(output_.find("Error: "), std::string::npos) << output_;
        EXPECT_NE(output_.find(c.message), std::string::npos) << output_;
    }
}

TEST_F(ToolTest, KarvenStackPrintsTheExampleStack) {
    ASSERT_EQ(
        run(KARVEN_STACK " -i " KARVEN_SOURCE_DIR "/examples/stack.ctf -o " + file("stack.json")),
        0)
        << output_;
    std::ifstream in(file("stack.json"));
    const json stack = json::parse(in);
    // Heights summed by hand from the example's thicknesses: the pre-metal 0.30, then per level
    // the inter-metal layer (the wire's own thickness), etch stop and inter-level layer.
    const struct {
        const char* name;
        double bottom, top, wmin;
    } metals[] = {{"M1", 0.30, 0.43, 0.065}, {"M2", 0.56, 0.70, 0.07}, {"M3", 0.84, 0.98, 0.07},
                  {"M4", 1.26, 1.54, 0.14},  {"M5", 1.82, 2.10, 0.14}, {"M6", 2.90, 3.70, 0.40},
                  {"M7", 4.50, 5.30, 0.40}};
    ASSERT_EQ(stack["conductors"].size(), std::size(metals));
    for (size_t i = 0; i < std::size(metals); ++i) {
        const json& c = stack["conductors"][i];
        EXPECT_EQ(c["name"], metals[i].name);
        EXPECT_NEAR(c["z_bottom"].get<double>(), metals[i].bottom, 1e-12) << metals[i].name;
        EXPECT_NEAR(c["z_top"].get<double>(), metals[i].top, 1e-12) << metals[i].name;
        EXPECT_EQ(c["wmin"], metals[i].wmin);
    }
    EXPECT_EQ(stack["substrate"]["z_top"], 0.0);
    EXPECT_EQ(stack["dielectrics"].size(), 23u);
    const json bar1 = find(stack["dielectrics"], "name", "BAR1");
    EXPECT_EQ(bar1["bottoms"], json({"M1"}));
    EXPECT_EQ(bar1["z_bottom"], bar1["z_top"]);
    EXPECT_EQ(bar1["er"], 4.8);
    // Unmerged plates start with the pre-metal layer and end with air above the passivation.
    EXPECT_EQ(stack["plates"].front(), json({0.0, 4.1}));
    EXPECT_NEAR(stack["plates"].back()[0].get<double>(), 5.8, 1e-12);
    EXPECT_EQ(stack["plates"].back()[1], 1.0);

    EXPECT_NE(run(KARVEN_STACK " -i " + file("absent.ctf")), 0);
    EXPECT_NE(output_.find("Error: Unable to open file"), std::string::npos) << output_;
}

TEST_F(ToolTest, PlotScriptDrawsAndLabelsTheSamples) {
    if (!haveMatplotlib()) GTEST_SKIP() << "python3-matplotlib is not installed";
    std::ofstream(file("s.jsonl")) << kSamples;
    const std::string script = KARVEN_SOURCE_DIR "/scripts/plot-samples.py " + file("s.jsonl") +
                               " --ctf " KARVEN_SOURCE_DIR "/examples/stack.ctf --karven-stack " +
                               KARVEN_STACK " -o " + file("pictures");
    ASSERT_EQ(run(script + " --ids 3"), 0) << output_;
    // Layers from the heights, the diagonal as total, and the largest off-diagonal magnitude:
    // for wire 0 that is |-0.15| to the plate, for wire 1 |-0.25| to the plate.
    for (const char* line : {"sample 3 conductor 0 M1 z 0.3..0.43 C=0.2 max_coupling=0.15 to 2",
                             "sample 3 conductor 1 M4 z 1.26..1.54 C=0.3 max_coupling=0.25 to 2",
                             "sample 3 conductor 2 plate z -0.1..0 C=0.4 max_coupling=0.25 to 1"})
        EXPECT_NE(output_.find(line), std::string::npos) << line << "\n" << output_;
    EXPECT_EQ(output_.find("sample 5 "), std::string::npos) << output_;
    for (const char* png : {"sample_3.png", "statistics.png"}) {
        std::ifstream in(file("pictures/") + png, std::ios::binary);
        std::string head(8, '\0');
        in.read(head.data(), 8);
        EXPECT_EQ(head, "\x89PNG\r\n\x1a\n") << png;
    }
    EXPECT_FALSE(fs::exists(file("pictures/sample_5.png")));

    EXPECT_NE(run(script + " --ids 4"), 0);
    EXPECT_NE(output_.find("no sample with id 4"), std::string::npos) << output_;
    std::ofstream(file("bad.jsonl")) << "{\"id\": 1}\n";
    EXPECT_NE(run(KARVEN_SOURCE_DIR "/scripts/plot-samples.py " + file("bad.jsonl") +
                  " --ctf " KARVEN_SOURCE_DIR "/examples/stack.ctf"),
              0);
    EXPECT_NE(output_.find("no key \"capacitances\""), std::string::npos) << output_;
}
