// The two output formats against golden text written by hand from the format description, and the
// sample file while a run writes it: nothing reaches the output path before commit, an abandoned
// file leaves no trace, and a second writer on the same path is refused.
#include "pattern_test_util.h"
#include "patterns/writer.h"

namespace fs = std::filesystem;

namespace {

using ptest::readFile;

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
    ptest::StubFamily f("FAM", KARVEN::GenericStructure::AnyPair, {"lateral", "bottom"});
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

TEST(SampleOutput, OnlyCommitReplacesTheOutputAndAbandoningLeavesNoTrace) {
    const fs::path dir = fs::path(testing::TempDir()) / ("sample_out_" + std::to_string(getpid()));
    fs::create_directories(dir);
    const std::string out = (dir / "s.jsonl").string();
    std::ofstream(out) << "old\n";
    {
        KARVEN::SampleOutput file(out);
        file.writeLine("half");
        EXPECT_TRUE(fs::exists(out + ".part"));
    }
    EXPECT_EQ(ptest::readFile(out), "old\n");
    EXPECT_FALSE(fs::exists(out + ".part"));
    {
        KARVEN::SampleOutput file(out);
        file.writeLine("{\"id\":0}");
        EXPECT_EQ(ptest::errorOf([&] { KARVEN::SampleOutput second(out); }),
                  "Error: another run is writing " + out + " (it holds " + out + ".part)");
        // The refused writer did not disturb the first one's file.
        file.writeLine("{\"id\":1}");
        EXPECT_EQ(ptest::readFile(out), "old\n");
        file.commit();
    }
    EXPECT_EQ(ptest::readFile(out), "{\"id\":0}\n{\"id\":1}\n");
    EXPECT_FALSE(fs::exists(out + ".part"));
    EXPECT_THROW(KARVEN::SampleOutput((dir / "no/such/s.jsonl").string()), KARVEN::FatalError);
    fs::remove_all(dir);
}
