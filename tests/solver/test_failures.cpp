// How the solver fails and cleans up: its fatal error becomes an exception that reaches the
// caller also from a walker thread, and a signal removes the registered temporary files.
#include <gtest/gtest.h>
#include <omp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <string>

#include "runtime/failure.h"
#include "solver/config.h"
#include "solver/file_utils.h"

namespace {

bool exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

}  // namespace

TEST(RaiseError, PrintsTheRedLineAndThrowsFromAWorkerThread) {
    KARVEN::FailureRelay relay;
    std::atomic<int> finished{0}, team{0};
    testing::internal::CaptureStdout();
#pragma omp parallel num_threads(4)
    {
        team = omp_get_num_threads();
        relay.run([&] {
            if (omp_get_thread_num() == omp_get_num_threads() - 1)
                RW2D::Debugger::raise_error("wire net overlap");
            ++finished;
        });
    }
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "\033[31m[ERROR]wire net overlap\033[0m\n");
    EXPECT_TRUE(relay.failed());
    try {
        relay.rethrow();
        FAIL() << "the worker's error must reach the caller";
    } catch (const KARVEN::FatalError& e) {
        EXPECT_STREQ(e.what(), "wire net overlap");
        EXPECT_TRUE(e.printed());
    }
    // Only the failing worker's work is lost; the others may have run or been skipped.
    EXPECT_LT(finished, team);
    // A later task on a failed relay is skipped; a relay without failure rethrows nothing.
    bool ran = false;
    relay.run([&] { ran = true; });
    EXPECT_FALSE(ran);
    KARVEN::FailureRelay quiet;
    quiet.run([] {});
    EXPECT_NO_THROW(quiet.rethrow());
}

namespace {

// The two files of the death test below, named after the test's own process.
std::string termTag(pid_t pid) {
    return testing::TempDir() + "karven_term_" + std::to_string(pid);
}

// Runs in the death test's child, whose parent is the test's process: registers the two files,
// forgets one, and ends by SIGTERM.
void terminated_with_files() {
    const std::string tag = termTag(getppid());
    RW2D::FileUtils::install_signal_cleanup();
    RW2D::FileUtils::remember_temp_file(tag + ".kept");
    RW2D::FileUtils::forget_temp_file(RW2D::FileUtils::remember_temp_file(tag + ".forgotten"));
    std::raise(SIGTERM);
}

}  // namespace

TEST(SignalCleanupDeathTest, SigtermRemovesTheRegisteredFilesOnly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string tag = termTag(getpid());
    const std::string kept = tag + ".kept", forgotten = tag + ".forgotten";
    std::ofstream(kept) << "x";
    std::ofstream(forgotten) << "x";
    EXPECT_EXIT(terminated_with_files(), testing::ExitedWithCode(1), "");
    EXPECT_FALSE(exists(kept));
    EXPECT_TRUE(exists(forgotten));
    std::remove(kept.c_str());
    std::remove(forgotten.c_str());
    EXPECT_THROW(RW2D::FileUtils::remember_temp_file(std::string(2000, 'a')), std::runtime_error);
}
