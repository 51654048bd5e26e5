// The tool from technology file to sample file, on the bundled example stack at a coarse
// precision: every matrix written is symmetric with rows summing to zero.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace fs = std::filesystem;

TEST(EndToEnd, ExampleStackGivesSymmetricZeroSumMatrices) {
    fs::path dir = fs::path(testing::TempDir()) / ("e2e_" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::ofstream(dir / "params.json") << R"({"Random": {"nsamples": 2, "poisson_lambda": 2,
                                          "window": 10.0, "conductor_window": 4.0}})";
    std::string cmd = std::string(KARVEN_BINARY) + " -i " KARVEN_SOURCE_DIR "/examples/stack.ctf" +
                      " -o " + (dir / "out/s.jsonl").string() + " --param-json " +
                      (dir / "params.json").string() + " -p 0.04 -n 2 > " +
                      (dir / "log.txt").string() + " 2>&1";
    int status = std::system(cmd.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::ifstream log(dir / "log.txt");
    std::string text((std::istreambuf_iterator<char>(log)), {});
    EXPECT_NE(text.find("Total solve count: 2, elapsed time: "), std::string::npos) << text;

    std::ifstream in(dir / "out/s.jsonl");
    int samples = 0;
    for (std::string line; std::getline(in, line); ++samples) {
        auto s = nlohmann::json::parse(line);
        const size_t n = s["size"].get<size_t>();
        ASSERT_EQ(s["conductors"].size(), n);
        ASSERT_EQ(s["capacitances"].size(), n * n);
        EXPECT_EQ(s["id"], samples);
        auto c = [&](size_t i, size_t j) { return s["capacitances"][i * n + j].get<double>(); };
        for (size_t i = 0; i < n; ++i) {
            double sum = 0;
            for (size_t j = 0; j < n; ++j) {
                sum += c(i, j);
                EXPECT_EQ(c(i, j), c(j, i));
                EXPECT_TRUE(i == j ? c(i, j) > 0 : c(i, j) <= 0) << i << "," << j;
            }
            EXPECT_NEAR(sum, 0.0, 1e-8 * n);  // values sit on the 1e-8 grid
        }
        // The last conductor is the substrate plate across the window.
        EXPECT_EQ(s["conductors"][n - 1], nlohmann::json({0.0, -0.05, 10.0, 0.1}));
    }
    EXPECT_EQ(samples, 2);
    fs::remove_all(dir);
}
