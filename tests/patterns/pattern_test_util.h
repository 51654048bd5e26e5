#pragma once
// Shared pieces of the pattern tests: a family with no geometry of its own, one-line stacks,
// file reading and quiet calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "patterns/generic.h"
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

}  // namespace ptest
