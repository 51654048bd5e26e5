// Shared helpers of the process-effect tests: polygon builders, a literal reading of the density
// map's stated cell loops, and an exact rectangle-union area written independently of the library.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "process_effects/clip_box.h"
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

// A fresh folder per test under the GoogleTest temporary directory.
inline std::filesystem::path testDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const auto dir = std::filesystem::path(::testing::TempDir()) /
                     ("karven_pe_" + std::string(info->test_suite_name()) + "_" + info->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

struct Rect64 {
    int64_t x0, y0, x1, y1;
};

// Exact area of the union of rectangles inside `clip`: every cell of the grid made by all rectangle
// edges is covered or not as a whole.
inline int64_t unionAreaByCells(const std::vector<Rect64>& rects, const Rect64& clip) {
    std::vector<int64_t> xs{clip.x0, clip.x1}, ys{clip.y0, clip.y1};
    for (const Rect64& r : rects) {
        xs.push_back(std::clamp(r.x0, clip.x0, clip.x1));
        xs.push_back(std::clamp(r.x1, clip.x0, clip.x1));
        ys.push_back(std::clamp(r.y0, clip.y0, clip.y1));
        ys.push_back(std::clamp(r.y1, clip.y0, clip.y1));
    }
    for (auto* v : {&xs, &ys}) {
        std::sort(v->begin(), v->end());
        v->erase(std::unique(v->begin(), v->end()), v->end());
    }
    int64_t area = 0;
    for (size_t a = 0; a + 1 < xs.size(); ++a)
        for (size_t b = 0; b + 1 < ys.size(); ++b) {
            const int64_t cx = xs[a],
                          cy = ys[b];  // the cell's lower left corner decides
            if (std::any_of(rects.begin(), rects.end(), [&](const Rect64& r) {
                    return r.x0 <= cx && cx < r.x1 && r.y0 <= cy && cy < r.y1;
                }))
                area += (xs[a + 1] - xs[a]) * (ys[b + 1] - ys[b]);
        }
    return area;
}

// The cell windows of a map as the constructor's steps state them, written out again here.
struct StatedGrid {
    int64_t grid_size = 0, win_size = 0, range_x = 0, range_y = 0;
    int64_t left = 0, bottom = 0, right = 0, top = 0;
    std::vector<std::array<int64_t, 4>> boxes;  // x low, x high, y low, y high; j * range_x + i

    StatedGrid(int32_t grid, int32_t win, int32_t l, int32_t b, int32_t r, int32_t t,
               int32_t extend)
        : left(l), bottom(b), right(r), top(t) {
        const int64_t w = right - left + 1, h = top - bottom + 1;
        range_x = (w + grid - 1) / grid;
        range_y = (h + grid - 1) / grid;
        const double s = std::max(double(w) / double(range_x), double(h) / double(range_y));
        grid_size = int64_t(s);
        if (s - double(grid_size) >= 1e-10) ++grid_size;
        win_size = std::max<int64_t>(win, grid_size);
        const int64_t m = (win_size - grid_size) / 2, rr = win_size - grid_size - m;
        const int64_t e = std::max(extend, 0);
        for (int64_t j = 0; j < range_y; ++j)
            for (int64_t i = 0; i < range_x; ++i) {
                const int64_t x0 = left + grid_size * i, y0 = bottom + grid_size * j;
                boxes.push_back(
                    {std::max(left - e, x0 - m), std::min(right + e, x0 + grid_size + rr),
                     std::max(bottom - e, y0 - m), std::min(top + e, y0 + grid_size + rr)});
            }
    }

    // The stated addOverlappedPoly and calculateDensity: every cell tested against the polygon's
    // bounding box, then the collected area over the window's area.
    std::vector<double> densities(const LayoutPolygonSet& polys) const {
        std::vector<ClipBox> clip;
        for (const auto& b : boxes) clip.emplace_back(b[0], b[1], b[2], b[3]);
        for (const LayoutPolygon& p : polys) {
            int64_t xl = INT64_MAX, xh = INT64_MIN, yl = INT64_MAX, yh = INT64_MIN;
            for (const LayoutPoint& q : p) {
                xl = std::min<int64_t>(xl, q.x), xh = std::max<int64_t>(xh, q.x);
                yl = std::min<int64_t>(yl, q.y), yh = std::max<int64_t>(yh, q.y);
            }
            for (size_t k = 0; k < boxes.size(); ++k) {
                const auto& b = boxes[k];
                if (b[0] < xh && b[1] > xl && b[2] < yh && b[3] > yl) clip[k].addPolygon(p);
            }
        }
        std::vector<double> d(boxes.size());
        for (size_t k = 0; k < boxes.size(); ++k)
            d[k] = (0.0 + clip[k].polygonArea()) /
                   (double(boxes[k][1] - boxes[k][0]) * double(boxes[k][3] - boxes[k][2]));
        return d;
    }

    // The stated getDensity over the given cell values.
    double density(const std::vector<double>& d, int64_t x, int64_t y, int64_t box) const {
        const int64_t h = box / 2;
        const int64_t wl = std::max(left, x - h), wr = std::min(x - h + box, right);
        const int64_t wb = std::max(bottom, y - h), wt = std::min(y - h + box, top);
        if (wr <= wl || wt <= wb) return 0.0;
        double sum = 0.0;
        for (int64_t i = (wl - left) / grid_size; i <= (wr - left) / grid_size; ++i)
            for (int64_t j = (wb - bottom) / grid_size; j <= (wt - bottom) / grid_size; ++j) {
                const auto& b = boxes[j * range_x + i];
                const int64_t cw = std::min(wr, b[1]) - std::max(wl, b[0]);
                const int64_t ch = std::min(wt, b[3]) - std::max(wb, b[2]);
                if (cw > 0 && ch > 0) sum += double(cw * ch) * d[j * range_x + i];
            }
        return sum / (double(wr - wl) * double(wt - wb));
    }
};

// Uniform integers in [a, b] from one seeded engine.
struct Rng {
    std::mt19937 engine;
    explicit Rng(unsigned seed) : engine(seed) {}
    int32_t operator()(int32_t a, int32_t b) {
        return std::uniform_int_distribution<int32_t>(a, b)(engine);
    }
};

}  // namespace pe_test
