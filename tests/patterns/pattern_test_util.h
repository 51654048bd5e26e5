#pragma once
// Shared pieces of the pattern tests: a family with no geometry of its own, one-line stacks,
// file reading and quiet calls.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "patterns/derived.h"
#include "patterns/generic.h"
#include "runtime/failure.h"
#include "technology/minictf.h"

namespace ptest {

// A family that sweeps `set` and draws nothing.
struct StubFamily : KARVEN::GenericStructure {
    StubFamily(const std::string& name, CombinationType c, std::vector<std::string> r = {},
               KARVEN::ParameterSet s = {})
        : GenericStructure(name, c), set(std::move(s)) {
        roles = std::move(r);
    }
    KARVEN::ParameterSet getParameterSet(const KARVEN::Layers&) override { return set; }
    KARVEN::Pattern actualStructure(const KARVEN::Layers&, const std::array<double, 4>&) override {
        return {};
    }
    KARVEN::ParameterSet set;
};

struct Metal {
    const char* name;
    double base, thickness, wmin = 0.1, smin = 0.1;
};

// Metals over one dielectric "D" from 0 to `top` of permittivity `er`.
inline void fillStack(MCTF::MiniCTF& ctf, const std::vector<Metal>& metals, double top = 1.0,
                      double er = 4.0) {
    for (const Metal& m : metals) ctf.appendConductor(m.name, m.base, m.thickness, m.wmin, m.smin);
    ctf.appendDielectric("D", 0.0, top, er);
    ctf.finishStack();
}

inline std::string readFile(const std::filesystem::path& p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline std::vector<std::string> lines(const std::filesystem::path& p) {
    std::vector<std::string> out;
    std::ifstream in(p);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

inline void writeLines(const std::filesystem::path& p, const std::vector<std::string>& lines) {
    std::ofstream out(p);
    for (const auto& l : lines) out << l << "\n";
}

// Calls fn with standard output captured; returns what it printed.
template <class F>
std::string quiet(F&& fn) {
    testing::internal::CaptureStdout();
    try {
        fn();
    } catch (...) {
        testing::internal::GetCapturedStdout();  // end the capture before the error goes on
        throw;
    }
    return testing::internal::GetCapturedStdout();
}

// The message of the FatalError that `fn` threw, or "no error"; any other exception fails the test.
template <class F>
std::string errorOf(F&& fn) {
    try {
        fn();
    } catch (const KARVEN::FatalError& e) {
        return e.what();
    }
    return "no error";
}

// A stand-in field solver: coupling falls off as exp(-gap) with the gap to the master, so rows are
// symmetric and sum to zero without noise, and every variance is 1e-8.
inline std::vector<double> falloffSolver(const std::vector<KARVEN::Rect>& wires,
                                         const std::vector<std::array<double, 2>>&,
                                         const std::vector<KARVEN::ConformalRect>&,
                                         const KARVEN::Rect&, double, int) {
    auto gap = [](const KARVEN::Rect& a, const KARVEN::Rect& b) {
        const double dx = std::max({0.0, b[0] - a[2], a[0] - b[2]});
        const double dy = std::max({0.0, b[1] - a[3], a[1] - b[3]});
        return std::hypot(dx, dy);
    };
    const size_t n = wires.size();
    std::vector<double> r(2 * n, 1e-8);
    r[0] = 0.0;
    for (size_t j = 1; j < n; ++j) {
        r[j] = -std::exp(-gap(wires[0], wires[j]));
        r[0] -= r[j];
    }
    return r;
}

// Random samples over six usable metal layers of growing width in one dielectric, written to a
// folder of the test's own, with `solver` (the stand-in unless a test sets another) and seed 7
// unless told otherwise.
class SampleRuns : public testing::Test {
protected:
    void SetUp() override {
        for (int k = 0; k < 6; ++k) {
            const double w = 0.1 * (k + 1);
            ctf.appendConductor("M" + std::to_string(k + 1), 0.5 * (k + 1), 0.2, w, w);
        }
        ctf.appendDielectric("D", 0.0, 4.0, 3.9);
        ctf.finishStack();
        dir = std::filesystem::path(testing::TempDir()) / ("samples_" + std::to_string(getpid()));
        std::filesystem::create_directories(dir);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    // Runs the family quietly into `file` as shard `shard` of `shards`; returns what it printed
    // and keeps the sample count it returned, or passes on what it threw.
    std::string run(const KARVEN::json& params, const std::string& file, int shard = 0,
                    int shards = 1, bool resume = false, int threads = 1, int seed = 7) {
        KARVEN::Random family;
        family.long_run.shard_index = shard;
        family.long_run.shard_count = shards;
        family.long_run.resume = resume;
        return quiet([&] {
            count = family.populate((dir / file).string(), ctf, params,
                                    {threads, 0.005, true, seed}, solver);
        });
    }

    MCTF::MiniCTF ctf;
    std::filesystem::path dir;
    KARVEN::FieldSolver solver = falloffSolver;
    int count = 0;
};

}  // namespace ptest
