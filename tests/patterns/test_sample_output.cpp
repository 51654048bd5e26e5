// The sample file while a run writes it: nothing reaches the output path before commit, an
// abandoned file leaves no trace, and a second writer on the same path is refused.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "pattern_test_util.h"
#include "patterns/writer.h"
#include "runtime/failure.h"

namespace fs = std::filesystem;

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
        try {
            KARVEN::SampleOutput second(out);
            ADD_FAILURE() << "two writers on one output";
        } catch (const KARVEN::FatalError& e) {
            EXPECT_EQ(std::string(e.what()),
                      "Error: another run is writing " + out + " (it holds " + out + ".part)");
        }
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
