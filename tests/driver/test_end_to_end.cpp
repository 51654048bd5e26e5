// The tool from technology file to sample file: on the bundled example stack every matrix written
// is symmetric with rows summing to zero, and a parallel-plate structure read from a structure
// file gives the capacitance of the plate formula.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

namespace fs = std::filesystem;

namespace {

// A fresh folder for one test, removed with the object.
struct TestDir {
    fs::path path;
    TestDir() {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        path = fs::path(testing::TempDir()) /
               (std::string("e2e_") + info->name() + "_" + std::to_string(getpid()));
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~TestDir() { fs::remove_all(path); }
};

// Runs the tool on `ctf` and the parameter file `params` in `dir`; returns its exit status with
// its output in dir/log.txt and the samples in dir/out/s.jsonl.
int runTool(const fs::path& dir, const std::string& ctf, const std::string& params,
            const std::string& options) {
    std::ofstream(dir / "params.json") << params;
    const std::string cmd = std::string(KARVEN_BINARY) + " -i " + ctf + " -o " +
                            (dir / "out/s.jsonl").string() + " --param-json " +
                            (dir / "params.json").string() + " " + options + " > " +
                            (dir / "log.txt").string() + " 2>&1";
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(EndToEnd, ExampleStackGivesSymmetricZeroSumMatrices) {
    TestDir tmp;
    const fs::path& dir = tmp.path;
    ASSERT_EQ(runTool(dir, KARVEN_SOURCE_DIR "/examples/stack.ctf",
                      R"({"Random": {"nsamples": 2, "poisson_lambda": 2,
                                     "window": 10.0, "conductor_window": 4.0}})",
                      "-p 0.04 -n 2"),
              0);
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
}

// The row constraint makes any matrix symmetric with zero row sums, a doubled one included; this
// checks the size. A plate across the whole window, 1 um over the substrate in er 3.9: with
// reflecting side walls the field below it is uniform and nothing reaches above it, so
// C = er eps0 W / d exactly, for the plate and (by the constraint) the substrate.
TEST(EndToEnd, PlateAcrossTheWindowGivesTheParallelPlateCapacitance) {
    TestDir tmp;
    const fs::path& dir = tmp.path;
    std::ofstream(dir / "plate.ctf")
        << "technology plate\n"
           "background_er 3.9\n"
           "dielectric D0 { thickness 1.0 er 3.9 }\n"
           "conductor M1 { thickness 0.5 wmin 0.1 smin 0.1 rho 0.02 }\n"
           "dielectric D1 { thickness 0.5 er 3.9 }\n";
    // Centre x, centre height, width, thickness: the plate spans the 10 um window.
    std::ofstream(dir / "plate.jsonl") << R"({"conductors": [[0.0, 1.25, 10.0, 0.5]],)"
                                          R"( "layers": ["M1"]})"
                                          "\n";
    ASSERT_EQ(runTool(dir, (dir / "plate.ctf").string(),
                      R"({"Random": {"window": 10.0, "structure_input": ")" +
                          (dir / "plate.jsonl").string() + R"("}})",
                      "-p 0.005 -n 1"),
              0);
    std::ifstream in(dir / "out/s.jsonl");
    std::string line;
    ASSERT_TRUE(std::getline(in, line));
    const auto s = nlohmann::json::parse(line);
    ASSERT_EQ(s["size"], 2);
    const double expected = 3.9 * 0.00885418781762039 * 10.0 / 1.0;  // 0.3453 fF/um
    for (int k : {0, 3}) {
        EXPECT_NEAR(s["capacitances"][k].get<double>(), expected, 0.02 * expected) << k;
    }
}
