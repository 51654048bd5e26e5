// Long runs through the built programs: a run killed with SIGKILL part-way and
// resumed gives the file of an uninterrupted run, shards merged by karven-merge
// give it too, and the merge refuses shard files that do not make one run.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "driver_test_util.h"

using namespace driver_test;

namespace {

const std::string kMerge = (fs::path(KARVEN_BINARY).parent_path() / "karven-merge").string();

class LongRunTool : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        // Six one-wire samples, solved coarsely: about a tenth of a second each on one core once
        // the first has solved the tables.
        write("p.json", R"({"Random": {"nsamples": 6, "poisson_lambda": 0, "window": 10.0, )"
                        R"("conductor_window": 4.0}})");
    }

    // A coarse run writing `out`; warm tables would end the run before the kill.
    std::vector<std::string> coarse(const std::string& out, std::vector<std::string> extra) {
        extra.insert(extra.end(), {"-p", "0.05", "--seed", "3", "--table-cache", "off"});
        return args(out, (dir / "p.json").string(), extra);
    }
};

}  // namespace

TEST_F(LongRunTool, RunKilledAtARandomMomentResumesToTheUninterruptedFile) {
    // Enough samples that the kill lands before the run ends.
    write("p.json", R"({"Random": {"nsamples": 16, "poisson_lambda": 0, "window": 10.0, )"
                    R"("conductor_window": 4.0}})");
    ASSERT_EQ(run(coarse("whole/s.jsonl", {"-n", "1"})), 0) << log;
    const std::string whole = readFile(dir / "whole/s.jsonl");
    ASSERT_EQ(countLines(dir / "whole/s.jsonl"), 16u);

    // Kill once the journal holds the header and one to three samples, plus up to a fifth of a
    // second, so that the kill may land in the middle of a solve or of a journal write. The run
    // is the shell's own child, not under `timeout`, so that the kill reaches it.
    std::mt19937 pick(std::random_device{}());
    const std::string lines = std::to_string(2 + pick() % 3);
    const std::string delay = std::to_string(static_cast<double>(pick() % 200) / 1000);
    SCOPED_TRACE("killed after journal line " + lines + " and " + delay + " s");
    std::string cut;
    for (const std::string& a : coarse("cut/s.jsonl", {"-n", "1"})) cut += "'" + a + "' ";
    sh(cut + "& pid=$!; i=0; until [ $(cat cut/s.jsonl.journal 2>/dev/null | wc -l) -ge " + lines +
       " ] || [ $i -ge 6000 ]; do sleep 0.01; i=$((i+1)); done; sleep " + delay +
       "; kill -KILL $pid; wait $pid; echo status=$?");
    ASSERT_NE(log.find("status=137"), std::string::npos) << "the run ended before the kill\n"
                                                         << log;
    EXPECT_FALSE(fs::exists(dir / "cut/s.jsonl"));

    // Without --resume the journal is not overwritten.
    EXPECT_EQ(run(coarse("cut/s.jsonl", {"-n", "1"})), 1);
    EXPECT_NE(log.find("holds an unfinished run; add --resume to finish it"), std::string::npos)
        << log;
    // A resumed run on two threads gives the one-thread run's file and removes
    // the journal.
    ASSERT_EQ(run(coarse("cut/s.jsonl", {"-n", "2", "--resume"})), 0) << log;
    EXPECT_EQ(readFile(dir / "cut/s.jsonl"), whole);
    EXPECT_FALSE(fs::exists(dir / "cut/s.jsonl.journal"));
}

TEST_F(LongRunTool, ShardsMergedByTheToolEqualOneRunAndBadSetsAreRefused) {
    ASSERT_EQ(run(coarse("whole.jsonl", {"-n", "1"})), 0) << log;
    std::vector<std::string> part;
    for (int k = 0; k < 3; ++k) {
        part.push_back((dir / ("part" + std::to_string(k) + ".jsonl")).string());
        ASSERT_EQ(run(coarse(part.back(), {"--shard", std::to_string(k) + "/3"})), 0) << log;
        EXPECT_EQ(countLines(part.back()), 2u);
    }
    const std::string merged = (dir / "merged.jsonl").string();
    ASSERT_EQ(run({kMerge, "-o", merged, part[2], part[0], part[1]}), 0) << log;
    EXPECT_EQ(readFile(merged), readFile(dir / "whole.jsonl"));
    // A bad set fails the tool (which sets are bad is the merge library's test).
    EXPECT_EQ(run({kMerge, "-o", (dir / "bad.jsonl").string(), part[0], part[2]}), 1);
    EXPECT_FALSE(fs::exists(dir / "bad.jsonl"));
}
