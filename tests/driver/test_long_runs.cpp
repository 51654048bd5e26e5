// Long runs through the built programs: a run killed with SIGKILL part-way and
// resumed gives the file of an uninterrupted run, shards merged by karven-merge
// give it too, and the merge refuses shard files that do not make one run.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "driver_test_util.h"

using namespace driver_test;

extern char** environ;

namespace {

const std::string kMerge = (fs::path(KARVEN_BINARY).parent_path() / "karven-merge").string();

size_t countLines(const fs::path& p) {
    const std::string text = readFile(p);
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class LongRunTool : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        // Six one-wire samples, solved coarsely: about a tenth of a second each on one core once
        // the first has solved the tables.
        write("p.json", R"({"Random": {"nsamples": 6, "poisson_lambda": 0, "window": 10.0, )"
                        R"("conductor_window": 4.0}})");
    }

    // The tool's arguments for output `out` (in the test's folder) and `extra` options.
    std::vector<std::string> args(const std::string& out, std::vector<std::string> extra) {
        std::vector<std::string> a = {KARVEN_BINARY,
                                      "-i",
                                      kStack,
                                      "-o",
                                      (dir / out).string(),
                                      "--param-json",
                                      (dir / "p.json").string()};
        // Warm tables would end the run before the kill.
        for (const char* s : {"-p", "0.05", "--seed", "3", "--table-cache", "off"}) a.push_back(s);
        a.insert(a.end(), extra.begin(), extra.end());
        return a;
    }

    // Starts `argv` with its output going to spawn.txt; returns its process id.
    pid_t start(const std::vector<std::string>& argv) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const std::string out = (dir / "spawn.txt").string();
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        std::vector<char*> raw;
        for (const std::string& a : argv) raw.push_back(const_cast<char*>(a.c_str()));
        raw.push_back(nullptr);
        pid_t pid = -1;
        EXPECT_EQ(posix_spawn(&pid, raw[0], &actions, nullptr, raw.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        return pid;
    }
};

}  // namespace

TEST_F(LongRunTool, RunKilledAtARandomMomentResumesToTheUninterruptedFile) {
    // Enough samples that the kill lands before the run ends.
    write("p.json", R"({"Random": {"nsamples": 16, "poisson_lambda": 0, "window": 10.0, )"
                    R"("conductor_window": 4.0}})");
    ASSERT_EQ(run(args("whole/s.jsonl", {"-n", "1"})), 0) << log;
    const std::string whole = readFile(dir / "whole/s.jsonl");
    ASSERT_EQ(std::count(whole.begin(), whole.end(), '\n'), 16);

    // Kill after the header and one to three samples, plus up to a fifth of a
    // second, so that the kill may land in the middle of a solve or of a journal
    // write.
    std::mt19937 pick(std::random_device{}());
    const size_t after = 1 + pick() % 3;
    const int delay_ms = static_cast<int>(pick() % 200);
    SCOPED_TRACE("killed after " + std::to_string(after) + " samples + " +
                 std::to_string(delay_ms) + " ms");
    const fs::path journal = dir / "cut/s.jsonl.journal";
    const pid_t pid = start(args("cut/s.jsonl", {"-n", "1"}));
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!(fs::exists(journal) && countLines(journal) >= 1 + after) &&
           std::chrono::steady_clock::now() < limit)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the run ended before the kill";
    EXPECT_FALSE(fs::exists(dir / "cut/s.jsonl"));

    // Without --resume the journal is not overwritten.
    EXPECT_EQ(run(args("cut/s.jsonl", {"-n", "1"})), 1);
    EXPECT_NE(log.find("holds an unfinished run; add --resume to finish it"), std::string::npos)
        << log;
    // A resumed run on two threads gives the one-thread run's file and removes
    // the journal.
    ASSERT_EQ(run(args("cut/s.jsonl", {"-n", "2", "--resume"})), 0) << log;
    EXPECT_EQ(readFile(dir / "cut/s.jsonl"), whole);
    EXPECT_FALSE(fs::exists(journal));
}

TEST_F(LongRunTool, ShardsMergedByTheToolEqualOneRunAndBadSetsAreRefused) {
    ASSERT_EQ(run(args("whole.jsonl", {"-n", "1"})), 0) << log;
    std::vector<std::string> part;
    for (int k = 0; k < 3; ++k) {
        part.push_back((dir / ("part" + std::to_string(k) + ".jsonl")).string());
        ASSERT_EQ(run(args(part.back(), {"--shard", std::to_string(k) + "/3"})), 0) << log;
        EXPECT_EQ(countLines(part.back()), 2u);
    }
    const std::string merged = (dir / "merged.jsonl").string();
    ASSERT_EQ(run({kMerge, "-o", merged, part[2], part[0], part[1]}), 0) << log;
    EXPECT_EQ(readFile(merged), readFile(dir / "whole.jsonl"));
    // A bad set fails the tool (which sets are bad is the merge library's test).
    EXPECT_EQ(run({kMerge, "-o", (dir / "bad.jsonl").string(), part[0], part[2]}), 1);
    EXPECT_FALSE(fs::exists(dir / "bad.jsonl"));
}
