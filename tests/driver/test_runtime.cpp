// Run services: the progress bar's two output forms, the logger's levels and targets, the
// argument table's typed reads.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "driver/logger.h"
#include "driver/pargument.h"
#include "driver/progress_bar.h"
#include "driver/ptimer.h"

namespace {

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

// Runs `total` ticks of a pipe-mode bar and returns the printed lines.
std::vector<std::string> pipeRun(uint64_t total) {
    KARVEN::ProgressBar bar(total, 50, 1);
    bar.is_tty = false;
    testing::internal::CaptureStdout();
    for (uint64_t i = 0; i < total; ++i) bar.tick("Solving");
    return lines(testing::internal::GetCapturedStdout());
}

// The count printed in a pipe line "Solving P% (c/t)   Elapsed X.XXs".
uint64_t countOf(const std::string& line) {
    static const std::regex form(R"(Solving (\d+)% \((\d+)/(\d+)\)   Elapsed \d+\.\d\ds)");
    std::smatch m;
    EXPECT_TRUE(std::regex_match(line, m, form)) << line;
    return m.size() > 2 ? std::stoull(m[2]) : 0;
}

}  // namespace

TEST(ProgressBarPipe, SmallTotalPrintsEveryTick) {
    auto out = pipeRun(150);
    ASSERT_EQ(out.size(), 150u);
    for (uint64_t i = 0; i < out.size(); ++i) EXPECT_EQ(countOf(out[i]), i + 1);
    EXPECT_EQ(out[74], "Solving 50% (75/150)   Elapsed " + out[74].substr(31));
    EXPECT_TRUE(out.front().starts_with("Solving 0% (1/150)"));
    EXPECT_TRUE(out.back().starts_with("Solving 100% (150/150)"));
}

TEST(ProgressBarPipe, LargeTotalsPrintAboutOncePerPercent) {
    // 200/100 = 2 and 250/100 truncates to 2: both print on even counts, and the last tick.
    for (uint64_t total : {200u, 250u}) {
        auto out = pipeRun(total);
        ASSERT_EQ(out.size(), total / 2) << total;
        for (uint64_t i = 0; i < out.size(); ++i) EXPECT_EQ(countOf(out[i]), 2 * (i + 1));
    }
    auto odd = pipeRun(251);  // the last tick prints although 251 is odd
    EXPECT_EQ(countOf(odd.back()), 251u);
    EXPECT_EQ(odd.size(), 126u);
}

TEST(ProgressBarPipe, StepSkipsTicksAndZeroTotalPrintsNothing) {
    KARVEN::ProgressBar stepped(10, 50, 5);
    stepped.is_tty = false;
    testing::internal::CaptureStdout();
    for (int i = 0; i < 10; ++i) stepped.tick("x");
    auto out = lines(testing::internal::GetCapturedStdout());
    ASSERT_EQ(out.size(), 2u);
    EXPECT_TRUE(out[0].starts_with("x 50% (5/10)"));

    KARVEN::ProgressBar empty(0, 50, 1);
    empty.is_tty = false;
    testing::internal::CaptureStdout();
    empty.tick("x");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ProgressBarTerminal, RedrawsOneLineWithBarEtaAndPadding) {
    KARVEN::ProgressBar bar(4, 10, 1);
    bar.is_tty = true;
    testing::internal::CaptureStdout();
    bar.tick("Run");
    std::string first = testing::internal::GetCapturedStdout();
    // 10 * 0.25 + 0.5 rounds to 3 filled cells; the work is fast, so the ETA is 0s.
    EXPECT_EQ(first, "\rRun [===       ]  25%  1/4  ETA 0s");

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
    EXPECT_TRUE(std::regex_search(last, std::regex(R"(\rRun \[==========\] 100%  4/4  Elapsed \d+\.\d\ds *\n$)")))
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
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[WARNING] value 7 2.5\n[FATAL] fatal\n");
}

TEST_F(PlogTest, EndsKeepsTheLineOpenAndOtherManipulatorsAreIgnored) {
    testing::internal::CaptureStdout();
    PLOG::log(4) << "a" << PLOG::ends << "b" << PLOG::endl;
    PLOG::log(4) << [](PLOG& p) -> PLOG& { return p << "never"; } << "c" << PLOG::endl;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[ERROR] a\nb\n[ERROR] c\n");
}

TEST_F(PlogTest, NegativeLevelShowsEverythingAndFilesGetTimeStamps) {
    PLOG& p = PLOG::log(0);
    EXPECT_EQ(p.enableStdLogging(-4, 0), 0);
    EXPECT_EQ(p.std_level, 0);
    std::string path = testing::TempDir() + "plog_test.log";
    p.addLoggingFile(path, 0);
    EXPECT_EQ(p.enableFileLogging(1, 1), 0);
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
    PARG::regArgument("P2P_BATCH_MODE", "0");
    PARG::regArgument("DISABLE_SIDE_TAN", "");
    EXPECT_EQ(std::string(PARG::get("TSV_MODE", "-")), "front");
    EXPECT_EQ(std::string(PARG::get("ABSENT", "-")), "-");
    EXPECT_DOUBLE_EQ(PARG::get("P2P_CG_TOL", -1.0), 1e-6);
    EXPECT_EQ(PARG::get("P2P_BATCH_MODE", 1), 0);
    EXPECT_EQ(PARG::get("DISABLE_SIDE_TAN", 5), 5);  // empty entry: the default
    EXPECT_DOUBLE_EQ(PARG::get("DISABLE_SIDE_TAN", 0.5), 0.5);
    PARG::regArgument("TSV_MODE", "back");  // a second registration replaces the first
    EXPECT_EQ(PARG::get(std::string("TSV_MODE"), std::string("-")), "back");
    PARG::clear();
}

TEST(PTimer, FormatsElapsedAndLocalTime) {
    PTimer t;
    EXPECT_TRUE(std::regex_match(std::string(t.stop()), std::regex(R"(\d+\.\d{3} sec)")));
    EXPECT_TRUE(std::regex_match(std::string(PTimer::getTimeString()),
                                 std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})")));
}
