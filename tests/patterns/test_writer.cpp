// The two output formats against golden text written by hand from the format description.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "pattern_test_util.h"
#include "patterns/derived.h"
#include "patterns/writer.h"

namespace fs = std::filesystem;

namespace {

using ptest::readFile;

struct LibFamily : ptest::StubFamily {
    explicit LibFamily(const std::string& n, std::vector<std::string> r = {"lateral", "bottom"})
        : StubFamily(n, AnyPair, std::move(r)) {}
};

class Writer : public testing::Test {
protected:
    void SetUp() override {
        ptest::fillStack(ctf, {{"M1", 0.2, 0.1}, {"M2", 0.5, 0.1, 0.2, 0.2}});
        full.params = {{{0.1, 0.2}, {1.0}, {0.5}, {2.0}}};
        full.values = {{-0.1, -0.2}, {0.3, -0.4}};
        out = fs::path(testing::TempDir()) / ("lib_" + std::to_string(getpid()) + ".txt");
    }
    void TearDown() override { fs::remove(out); }
    MCTF::MiniCTF ctf;
    KARVEN::CapLib full;
    fs::path out;
};

}  // namespace

TEST_F(Writer, LibraryWithSkippedAndFullCombination) {
    LibFamily f("FAM");
    f.skips = {{"", {"pre"}}, {"bottom", {"post"}}};
    std::vector<std::pair<KARVEN::Layers, KARVEN::CapLib>> libs{
        {{ctf.substrate_ref, ctf.conductors[0]}, KARVEN::CapLib{}},
        {{ctf.conductors[0], ctf.conductors[1]}, full}};
    EXPECT_EQ(f.writeCapLibs(out.string(), libs), 2);
    EXPECT_EQ(readFile(out), readFile("golden/library_skipped_and_full.txt"));
}

// The whole file and the journal's single line give the same bytes, the line with its global id.
TEST_F(Writer, SampleFileOneCompactObjectPerLineWithCentresAndSizes) {
    KARVEN::PatternResult r{{{0.0, 0.1, 0.2, 0.3}, {-50.0, -0.1, 50.0, 0.0}},
                            {0.12345678949, -0.000000001, -0.1, 0.1}};
    std::vector<KARVEN::PatternResult> results{r};
    EXPECT_EQ(KARVEN::sampleLine(r, 0) + "\n", readFile("golden/sample_line.jsonl"));
    EXPECT_NE(KARVEN::sampleLine(r, 40123).find(",\"id\":40123,"), std::string::npos);
    KARVEN::Random().dump_to_json(results, out.string());
    EXPECT_EQ(readFile(out), readFile("golden/sample_line.jsonl"));
    EXPECT_DOUBLE_EQ(results[0].first[1][2], 100.0);  // rectangles were rewritten in place

    std::vector<KARVEN::PatternResult> none;
    KARVEN::Random().dump_to_json(none, out.string());
    EXPECT_EQ(readFile(out), "");
}
