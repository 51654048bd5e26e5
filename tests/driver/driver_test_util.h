// Shared helpers of the tests that run the built programs: a fresh folder per test, file reading
// and writing, and a shell runner that keeps what the program printed.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace driver_test {

namespace fs = std::filesystem;

inline const std::string kStack = KARVEN_SOURCE_DIR "/examples/stack.ctf";

inline std::string readFile(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

inline size_t countLines(const fs::path& p) {
    const std::string text = readFile(p);
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class ToolTest : public testing::Test {
protected:
    void SetUp() override {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        dir = fs::path(testing::TempDir()) / ("karven_" + std::to_string(getpid()) + "_" +
                                              info->test_suite_name() + "_" + info->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    // Writes `text` to `name` in the test's folder; returns its path.
    std::string write(const std::string& name, const std::string& text) {
        std::ofstream(dir / name, std::ios::binary) << text;
        return (dir / name).string();
    }

    // Runs `script` with sh in the test's folder, with $K the tool, $S the example stack and $D
    // the folder; returns the exit status and keeps standard output and error in `log`.
    int sh(std::string script) {
        for (size_t at = 0; (at = script.find('\'', at)) != std::string::npos; at += 4)
            script.replace(at, 1, "'\\''");
        const std::string cmd = "cd '" + dir.string() + "' && K='" KARVEN_BINARY "' S='" + kStack +
                                "' D='" + dir.string() + "' sh -c '" + script + "' > '" +
                                (dir / "log.txt").string() + "' 2>&1";
        const int status = std::system(cmd.c_str());
        log = readFile(dir / "log.txt");
        // Under the sanitizers a finding also ends with status 1: look for its report.
        EXPECT_EQ(log.find("Sanitizer"), std::string::npos) << log;
        EXPECT_EQ(log.find("runtime error:"), std::string::npos) << log;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    // Runs the program and arguments `argv` as sh does, under a time limit, so that a hang fails
    // rather than stalls.
    int run(const std::vector<std::string>& argv) {
        std::string command = "exec timeout 240";
        for (const std::string& a : argv) command += " '" + a + "'";
        return sh(command);
    }

    // The tool's arguments on the example stack, writing `out` (in the test's folder) with the
    // parameter file `params`, then `extra`.
    std::vector<std::string> args(const std::string& out, const std::string& params,
                                  std::vector<std::string> extra) {
        extra.insert(extra.begin(), {KARVEN_BINARY, "-i", kStack, "-o", (dir / out).string(),
                                     "--param-json", params});
        return extra;
    }

    fs::path dir;
    std::string log;
};

}  // namespace driver_test
