// The table cache between runs: a warm run reads what a cold one solved and writes the very same
// samples; a damaged cache is ignored with a warning; "off" keeps nothing.
#include <nlohmann/json.hpp>

#include "driver_test_util.h"

using namespace driver_test;

namespace {

class TableCacheRuns : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write("p.json", R"({"Random": {"nsamples": 2, "poisson_lambda": 2, "window": 10.0, )"
                        R"("conductor_window": 4.0}})");
    }
    // Runs the tool into <name>.jsonl with the given cache option; returns its metadata.
    nlohmann::json runWith(const std::string& name, const std::string& cache) {
        EXPECT_EQ(run(args(name + ".jsonl", (dir / "p.json").string(),
                           {"-p", "0.04", "-n", "2", "--table-cache", cache})),
                  0)
            << log;
        return nlohmann::json::parse(readFile(dir / (name + ".jsonl.meta.json")));
    }
};

TEST_F(TableCacheRuns, WarmRunSolvesNoTableAndWritesTheSameSamples) {
    const std::string cache = (dir / "cache").string();
    const auto cold = runWith("cold", cache);
    ASSERT_EQ(std::distance(fs::directory_iterator(cache), fs::directory_iterator{}), 1);
    const fs::path file = fs::directory_iterator(cache)->path();
    EXPECT_GT(cold["table_solves"].get<int>(), 0);
    EXPECT_EQ(cold["table_cache"], file.string());

    const auto warm = runWith("warm", cache);
    EXPECT_EQ(warm["table_solves"], 0);
    EXPECT_GT(warm["tables_loaded"].get<int>(), 0);
    EXPECT_EQ(warm["table_queries"], cold["table_queries"]);  // the same walks
    EXPECT_EQ(readFile(dir / "warm.jsonl"), readFile(dir / "cold.jsonl"));

    // A damaged cache is refused, the run solves its tables again, and the samples stay the same.
    std::string bytes = readFile(file);
    bytes[bytes.size() / 2] ^= 0x01;
    write("cache/" + file.filename().string(), bytes);
    const auto damaged = runWith("damaged", cache);
    EXPECT_NE(log.find("Warning: table cache " + file.string() + " ignored"), std::string::npos)
        << log;
    EXPECT_EQ(damaged["tables_loaded"], 0);
    // Two walkers may both solve a table they meet at once, so the count is not exact.
    EXPECT_GT(damaged["table_solves"].get<int>(), cold["table_solves"].get<int>() * 9 / 10);
    EXPECT_EQ(readFile(dir / "damaged.jsonl"), readFile(dir / "cold.jsonl"));

    // "off" keeps nothing and reads nothing.
    const auto off = runWith("off", "off");
    EXPECT_EQ(off["table_cache"], "");
    EXPECT_EQ(off["tables_loaded"], 0);
    EXPECT_FALSE(fs::exists(dir / "off"));
}

}  // namespace
