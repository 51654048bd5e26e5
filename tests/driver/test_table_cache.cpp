// The table cache between runs: a warm run reads what a cold one solved and writes the very same
// samples; a damaged cache is ignored with a warning; "off" keeps nothing.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

namespace fs = std::filesystem;

namespace {

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class TableCacheRuns : public testing::Test {
protected:
    void SetUp() override {
        dir = fs::path(testing::TempDir()) / ("table_cache_" + std::to_string(getpid()));
        fs::remove_all(dir);
        fs::create_directories(dir);
        std::ofstream(dir / "params.json")
            << R"({"Random": {"nsamples": 2, "poisson_lambda": 2, "window": 10.0,
                              "conductor_window": 4.0}})";
    }
    void TearDown() override { fs::remove_all(dir); }

    // Runs the tool into dir/<name>.jsonl with the given cache option; returns its output.
    std::string run(const std::string& name, const std::string& cache) {
        const fs::path log = dir / (name + ".log");
        const std::string cmd =
            std::string(KARVEN_BINARY) +
            " -i " KARVEN_SOURCE_DIR "/examples/stack.ctf -p 0.04 -n 2 --param-json " +
            (dir / "params.json").string() + " -o " + (dir / (name + ".jsonl")).string() +
            " --table-cache " + cache + " > " + log.string() + " 2>&1";
        const int status = std::system(cmd.c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << slurp(log);
        return slurp(log);
    }
    nlohmann::json meta(const std::string& name) {
        return nlohmann::json::parse(slurp(dir / (name + ".jsonl.meta.json")));
    }
    fs::path dir;
};

TEST_F(TableCacheRuns, WarmRunSolvesNoTableAndWritesTheSameSamples) {
    const std::string cache = (dir / "cache").string();
    run("cold", cache);
    ASSERT_EQ(std::distance(fs::directory_iterator(cache), fs::directory_iterator{}), 1);
    const fs::path file = fs::directory_iterator(cache)->path();
    EXPECT_EQ(file.extension(), ".rw2dtables");
    const auto cold = meta("cold");
    EXPECT_GT(cold["table_solves"].get<int>(), 0);
    EXPECT_EQ(cold["table_cache"], file.string());

    run("warm", cache);
    const auto warm = meta("warm");
    EXPECT_EQ(warm["table_solves"], 0);
    EXPECT_GT(warm["tables_loaded"].get<int>(), 0);
    EXPECT_EQ(warm["table_queries"], cold["table_queries"]);  // the same walks
    EXPECT_EQ(slurp(dir / "warm.jsonl"), slurp(dir / "cold.jsonl"));

    // A damaged cache is refused, the run solves its tables again, and the samples stay the same.
    std::string bytes = slurp(file);
    bytes[bytes.size() / 2] ^= 0x01;
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
    const std::string log = run("damaged", cache);
    EXPECT_NE(log.find("Warning: table cache " + file.string() + " ignored"), std::string::npos)
        << log;
    EXPECT_EQ(meta("damaged")["tables_loaded"], 0);
    // Two walkers may both solve a table they meet at once, so the count is not exact.
    EXPECT_GT(meta("damaged")["table_solves"].get<int>(), cold["table_solves"].get<int>() * 9 / 10);
    EXPECT_EQ(slurp(dir / "damaged.jsonl"), slurp(dir / "cold.jsonl"));
}

TEST_F(TableCacheRuns, OffKeepsNothing) {
    run("off", "off");
    EXPECT_EQ(meta("off")["table_cache"], "");
    EXPECT_FALSE(fs::exists(dir / "off"));
    EXPECT_GT(meta("off")["table_solves"].get<int>(), 0);
}

}  // namespace
