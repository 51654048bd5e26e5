// The tool from technology file to sample file: on the bundled example stack every matrix written
// is symmetric with rows summing to zero in lines of the sample format, and a parallel-plate
// structure read from a structure file gives the capacitance of the plate formula.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "driver_test_util.h"

using namespace driver_test;

using EndToEnd = ToolTest;

TEST_F(EndToEnd, ExampleStackGivesSymmetricZeroSumMatricesInCompactLines) {
    const std::string params = write("p.json", R"({"Random": {"nsamples": 2, "poisson_lambda": 2,
                                                  "window": 10.0, "conductor_window": 4.0}})");
    ASSERT_EQ(run(args("out/s.jsonl", params, {"-p", "0.04", "-n", "2"})), 0) << log;
    EXPECT_NE(log.find("Total solve count: 2, elapsed time: "), std::string::npos) << log;

    std::istringstream in(readFile(dir / "out/s.jsonl"));
    int samples = 0;
    for (std::string line; std::getline(in, line); ++samples) {
        auto s = nlohmann::json::parse(line);
        // Compact, keys in this order, nothing added: the line as the sample writer makes it.
        EXPECT_EQ(line, s.dump());
        std::string keys;
        for (const auto& [key, value] : s.items()) keys += key + " ";
        EXPECT_EQ(keys, "capacitances conductors id size ");
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
    // The record beside the samples names them but leaves their matrices to the sample file.
    EXPECT_EQ(readFile(dir / "out/s.jsonl.meta.json").find("capacitances"), std::string::npos);
}

// The row constraint makes any matrix symmetric with zero row sums, a doubled one included; this
// checks the size. A plate across the whole window, 1 um over the substrate in er 3.9: with
// reflecting side walls the field below it is uniform and nothing reaches above it, so
// C = er eps0 W / d exactly, for the plate and (by the constraint) the substrate.
TEST_F(EndToEnd, PlateAcrossTheWindowGivesTheParallelPlateCapacitance) {
    write("plate.ctf",
          "technology plate\nbackground_er 3.9\ndielectric D0 { thickness 1.0 er 3.9 }\n"
          "conductor M1 { thickness 0.5 wmin 0.1 smin 0.1 rho 0.02 }\n"
          "dielectric D1 { thickness 0.5 er 3.9 }\n");
    // Centre x, centre height, width, thickness: the plate spans the 10 um window.
    write("plate.jsonl", R"({"conductors": [[0.0, 1.25, 10.0, 0.5]], "layers": ["M1"]})"
                         "\n");
    write("p.json", R"({"Random": {"window": 10.0, "structure_input": "plate.jsonl"}})");
    ASSERT_EQ(sh("exec timeout 240 \"$K\" -i plate.ctf -o out/s.jsonl --param-json p.json "
                 "-p 0.005 -n 1"),
              0)
        << log;
    const auto s = nlohmann::json::parse(readFile(dir / "out/s.jsonl"));
    ASSERT_EQ(s["size"], 2);
    const double expected = 3.9 * 0.00885418781762039 * 10.0 / 1.0;  // 0.3453 fF/um
    for (int k : {0, 3}) {
        EXPECT_NEAR(s["capacitances"][k].get<double>(), expected, 0.02 * expected) << k;
    }
}
