// Shared helpers of the process-effect tests: polygon builders.
#pragma once

#include <algorithm>
#include <cstdint>

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

}  // namespace pe_test
