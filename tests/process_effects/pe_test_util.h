// Shared helpers of the process-effect tests: polygon builders and a seeded integer source.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>

#include "process_effects/layout_polygon.h"

namespace pe_test {

// Closed counter-clockwise rectangle ring.
inline LayoutPolygon rect(int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}, {x0, y0}};
}

inline LayoutPolygon reversed(LayoutPolygon p) {
    std::reverse(p.begin(), p.end());
    return p;
}

// One ring tracing `a`, then `b`.
inline LayoutPolygon cat(LayoutPolygon a, const LayoutPolygon& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Uniform integers in [a, b] from one seeded engine.
struct Rng {
    std::mt19937 engine;
    explicit Rng(unsigned seed) : engine(seed) {}
    int32_t operator()(int32_t a, int32_t b) {
        return std::uniform_int_distribution<int32_t>(a, b)(engine);
    }
};

}  // namespace pe_test
