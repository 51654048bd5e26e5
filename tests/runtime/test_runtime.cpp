// Run services: the progress bar's two output forms, the logger's levels and targets, the
// argument table's typed reads.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "runtime/logger.h"
#include "runtime/pargument.h"
#include "runtime/progress_bar.h"
#include "runtime/ptimer.h"

namespace {

// Runs `ticks` ticks of a pipe-mode bar and returns the printed lines.
std::vector<std::string> pipeRun(uint64_t total, uint64_t step, uint64_t ticks, const char* label) {
    KARVEN::ProgressBar bar(total, 50, step);
    bar.is_tty = false;
    testing::internal::CaptureStdout();
    for (uint64_t i = 0; i < ticks; ++i) bar.tick(label);
    std::istringstream in(testing::internal::GetCapturedStdout());
    std::vector<std::string> out;
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

}  // namespace

TEST(ProgressBarPipe, PrintsAboutOncePerPercentAndTheLastTick) {
    // Up to 100 ticks print every count; above, every total/100-th count (truncated), and the last.
    // Every line but the last tells the time left.
    static const std::regex form(
        R"(Solving (\d+)% \((\d+)/(\d+)\)   Elapsed \d+\.\d\ds(  ETA [\dhms]+)?)");
    for (uint64_t total : {150u, 200u, 250u, 251u}) {
        SCOPED_TRACE(total);
        const uint64_t every = total < 200 ? 1 : 2;
        std::vector<std::string> want;
        for (uint64_t k = 1; k <= total; ++k)
            if (k % every == 0 || k == total)
                want.push_back(std::to_string(k) + "/" + std::to_string(total));
        auto out = pipeRun(total, 1, total, "Solving");
        ASSERT_EQ(out.size(), want.size());
        for (size_t i = 0; i < out.size(); ++i) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(out[i], m, form)) << out[i];
            EXPECT_EQ(m[2].str() + "/" + m[3].str(), want[i]);
            EXPECT_EQ(m[4].matched, i + 1 < out.size()) << out[i];
        }
        EXPECT_TRUE(out.back().starts_with("Solving 100% (")) << out.back();
        EXPECT_TRUE(total != 150 || out[74].starts_with("Solving 50% (75/150)   Elapsed "));
    }
    // A step skips ticks; an empty total prints nothing.
    auto stepped = pipeRun(10, 5, 10, "x");
    ASSERT_EQ(stepped.size(), 2u);
    EXPECT_TRUE(stepped[0].starts_with("x 50% (5/10)"));
    EXPECT_TRUE(pipeRun(0, 1, 1, "x").empty());
}

// 5 of 10 were done before; one new tick took 10 s, so 4 left take 40 s. Counting all 6 ticks as
// this run's would promise 4 x 10 / 6 = 6 s. 9 left at 1000 s each print hours and minutes.
TEST(ProgressBar, ResumedBarTimesOnlyNewTicks) {
    for (const auto& [done, seconds, tty, want] :
         std::vector<std::tuple<uint64_t, int, bool, const char*>>{
             {5, 10, false, "Run 60% (6/10)   Elapsed 10."},
             {5, 10, true, "  60%  6/10  ETA 40s"},
             {0, 1000, false, "  ETA 2h30m0s"}}) {
        KARVEN::ProgressBar bar(10, 10, 1, done);
        bar.is_tty = tty;
        bar.start_time -= std::chrono::seconds(seconds);
        testing::internal::CaptureStdout();
        bar.tick("Run");
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_NE(out.find(want), std::string::npos) << out;
        EXPECT_NE(out.find(done ? "ETA 40s" : "ETA 2h30m0s"), std::string::npos) << out;
    }
}

TEST(ProgressBarTerminal, RedrawsOneLineWithBarEtaAndPadding) {
    KARVEN::ProgressBar bar(4, 10, 1);
    bar.is_tty = true;
    testing::internal::CaptureStdout();
    bar.tick("Run");
    // 10 * 0.25 + 0.5 rounds to 3 filled cells; the work is fast, so the ETA is 0s.
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\rRun [===       ]  25%  1/4  ETA 0s");

    bar.last_length = 60;  // a longer former line must be wiped
    testing::internal::CaptureStdout();
    bar.tick("Run");
    std::string second = testing::internal::GetCapturedStdout();
    EXPECT_EQ(second.size(), 60u);
    EXPECT_TRUE(second.starts_with("\rRun [=====     ]  50%  2/4  ETA 0s  ")) << second;

    testing::internal::CaptureStdout();
    bar.tick("Run");
    bar.tick("Run");
    std::string last = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_search(
        last, std::regex(R"(\rRun \[==========\] 100%  4/4  Elapsed \d+\.\d\ds *\n$)")))
        << last;
}

class PlogTest : public testing::Test {
protected:
    void TearDown() override {
        PLOG& p = PLOG::log(2);
        p.closeLog();
        p.std_enabled = 1;
        p.std_timestamp = 0;
        p.file_enabled = 0;
        p.std_level = 3;
        p.file_level = 0;
        p.at_line_start = 1;
    }
};

TEST_F(PlogTest, ShowsWarningsAndAboveWithPrefixOncePerLine) {
    testing::internal::CaptureStdout();
    PLOG::log(2) << "hidden" << PLOG::endl;
    PLOG::log(3) << "value " << 7 << " " << 2.5 << PLOG::endl;
    PLOG::log(5) << std::string("fatal") << PLOG::endl;
    // ends keeps the line open; other manipulators are ignored.
    PLOG::log(4) << "a" << PLOG::ends << "b" << PLOG::endl;
    PLOG::log(4) << [](PLOG& p) -> PLOG& { return p << "never"; } << "c" << PLOG::endl;
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[WARNING] value 7 2.5\n[FATAL] fatal\n[ERROR] a\nb\n[ERROR] c\n");
}

TEST_F(PlogTest, NegativeLevelShowsEverythingAndFilesGetTimeStamps) {
    PLOG& p = PLOG::log(0);
    p.enableStdLogging(-4, 0);
    EXPECT_EQ(p.std_level, 0);  // a negative level is clamped
    const std::string path = testing::TempDir() + "plog_test_" + std::to_string(getpid()) + ".log";
    p.addLoggingFile(path, 0);
    p.enableFileLogging(1, 1);
    testing::internal::CaptureStdout();
    PLOG::log(0) << "zero" << PLOG::endl;
    PLOG::log(1) << "one" << PLOG::endl;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[--] zero\n[DEBUG] one\n");
    p.closeLog();
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), {});
    EXPECT_TRUE(std::regex_match(
        text, std::regex(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\]\[DEBUG\] one\n)")))
        << text;
    std::remove(path.c_str());
}

TEST(Parg, TypedReadsWithDefaults) {
    PARG::clear();
    PARG::regArgument("TSV_MODE", "front");
    PARG::regArgument("P2P_CG_TOL", "1e-6");
    PARG::regArgument("DISABLE_SIDE_TAN", "");
    EXPECT_EQ(std::string(PARG::get("ABSENT", "-")), "-");
    EXPECT_DOUBLE_EQ(PARG::get("P2P_CG_TOL", -1.0), 1e-6);
    EXPECT_EQ(PARG::get("DISABLE_SIDE_TAN", 5), 5);  // empty entry: the default
    PARG::regArgument("TSV_MODE", "back");           // a second registration replaces the first
    EXPECT_EQ(PARG::get(std::string("TSV_MODE"), std::string("-")), "back");
    PARG::clear();
}

TEST(PTimer, FormatsElapsedAndLocalTime) {
    PTimer t;
    EXPECT_TRUE(std::regex_match(std::string(t.stop()), std::regex(R"(\d+\.\d{3} sec)")));
    EXPECT_TRUE(std::regex_match(std::string(PTimer::getTimeString()),
                                 std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})")));
}
