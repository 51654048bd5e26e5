// A folder of its own per test for the job-file readers, an empty argument table around each test,
// and capture of the logger's standard output.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "jobs/text_parser.h"
#include "runtime/pargument.h"

namespace jobs_test {

class JobFileTest : public testing::Test {
protected:
    void SetUp() override {
        PARG::clear();
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        dir = std::filesystem::path(testing::TempDir()) /
              ("jobs_" + std::to_string(getpid()) + "_" + info->test_suite_name() + "_" +
               info->name());
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        dir = std::filesystem::canonical(dir);
    }
    void TearDown() override {
        PARG::clear();
        std::filesystem::remove_all(dir);
    }
    // Writes `text` to `name` (folders made as needed) under the test's folder; returns its path.
    std::string write(const std::string& name, const std::string& text) {
        const std::filesystem::path p = dir / name;
        std::filesystem::create_directories(p.parent_path());
        std::ofstream(p) << text;
        return p.string();
    }
    // Returns what `f` returns; the logger's output lands in `log`, also when `f` throws.
    template <class F>
    auto logged(F f) {
        testing::internal::CaptureStdout();
        try {
            auto r = f();
            log = testing::internal::GetCapturedStdout();
            return r;
        } catch (...) {
            log = testing::internal::GetCapturedStdout();
            throw;
        }
    }
    // Reads `text` as a job file into `t`; returns the reader's result.
    bool readJob(const std::string& text, Task& t) {
        const std::string path = write("job.cmd", text);
        return logged([&] { return TextParser::parseDravixCmd(path.c_str(), t); });
    }
    std::filesystem::path dir;
    std::string log;
};

}  // namespace jobs_test
