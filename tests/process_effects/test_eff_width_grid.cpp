// EffWidthGrid: vertex growth by hand, widths and spacings of regular arrays against their drawn
// sizes, the saturation rules, pieces, and the deferred grid against the direct one.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "pe_test_util.h"
#include "process_effects/eff_width_grid.h"

namespace {

using pe_test::rect;
using pe_test::reversed;
constexpr double kU = EffWidthGrid::kUnbounded;

TEST(ExpandPiece, VerticesMoveToTheMitrePoints) {
    const struct {
        LayoutPolygon in;
        int32_t distance;
        LayoutPolygon out;
    } cases[] = {
        {reversed(rect(0, 0, 10, 10)), 5, reversed(rect(-5, -5, 15, 15))},
        {{{0, 0}, {10, 0}, {10, 10}, {0, 10}}, 1, rect(-1, -1, 11, 11)},  // open ring
        // The concave corner of an L moves inward along its bisector.
        {{{0, 0}, {20, 0}, {20, 10}, {10, 10}, {10, 20}, {0, 20}, {0, 0}},
         2,
         {{-2, -2}, {22, -2}, {22, 12}, {12, 12}, {12, 22}, {-2, 22}, {-2, -2}}},
        // The 45-degree corner at (10, 0) goes where y = -10 meets x + y = 10 + 10 sqrt 2.
        {{{0, 0}, {10, 0}, {0, 10}, {0, 0}}, 10, {{-10, -10}, {34, -10}, {-10, 34}, {-10, -10}}},
        {{{0, 0}, {10, 0}, {0, 10}}, 5, {}},  // too few points
    };
    for (const auto& c : cases) {
        LayoutPolygon out{{1, 1}};  // replaced, not appended to
        expandPiece(c.in, out, c.distance);
        EXPECT_EQ(out, c.out) << c.distance;
    }
}

// Parallel lines of width w and spacing s over the whole frame and beyond its extension.
LayoutPolygonSet lineArray(int32_t w, int32_t s, bool vertical = true, int32_t grow = 0) {
    LayoutPolygonSet lines;
    for (int32_t a = -20000; a < 120000; a += w + s)
        lines.push_back(vertical ? rect(a - grow, -2000 - grow, a + w + grow, 102000 + grow)
                                 : rect(-2000, a, 102000, a + w));
    return lines;
}

// A 100 x 100 grid of cells of 1 um over a frame of 100 um in nm, window 5 um.
std::unique_ptr<EffWidthGrid> gridOf(const LayoutPolygonSet& polys, int32_t expansion,
                                     bool plate = false) {
    auto g = std::make_unique<EffWidthGrid>(1000, 5000, 0, 0, 99999, 99999, expansion);
    if (plate) g->usePlateDensityRule();
    for (const LayoutPolygon& p : polys) g->addPoly(p);
    g->calculateEffWidthSpacing(nullptr, nullptr, nullptr);
    return g;
}

// Away from saturation the grid gives back the drawn width and spacing: each pitch divides the 5 um
// window, so every window holds whole periods. Squares of side a at pitch p grow in area
// quadratically: the parabola's double root is where the side vanishes, so the width is a, and the
// spacing (1 - d0) a / d0 with d0 = a^2 / p^2.
TEST(EffWidthGrid, RegularArraysGiveTheirWidthAndSpacing) {
    std::vector<std::tuple<LayoutPolygonSet, double, double, double>> cases;  // and the tolerance
    for (auto [w, s] : {std::pair{100, 150}, {50, 200}, {300, 200}, {90, 160}})
        for (bool vertical : {true, false})
            cases.emplace_back(lineArray(w, s, vertical), w, s, 1e-9);
    const int32_t a = 200, p = 500;
    LayoutPolygonSet squares;
    for (int32_t x = -20000; x < 120000; x += p)
        for (int32_t y = -20000; y < 120000; y += p) squares.push_back(rect(x, y, x + a, y + a));
    cases.emplace_back(squares, a, (double(p) * p - double(a) * a) / a, 1e-3);
    for (const auto& [polys, w, s, tolerance] : cases) {
        SCOPED_TRACE(std::to_string(w) + " / " + std::to_string(s));
        const auto g = gridOf(polys, 10);
        for (int32_t j = 3; j < 97; j += 3)
            for (int32_t i = 3; i < 97; i += 5) {
                ASSERT_NEAR(g->getEffWidth(i, j), w, tolerance * w) << i << "," << j;
                ASSERT_NEAR(g->getEffSpacing(i, j), s, tolerance * s) << i << "," << j;
            }
    }
}

TEST(EffWidthGrid, SaturationRules) {
    const LayoutPolygonSet full{rect(-100, -100, 100100, 100100)};
    const struct {
        const char* name;
        LayoutPolygonSet polys;
        int32_t expansion;
        bool plate;
        double width, spacing;
    } cases[] = {
        {"empty", {}, 10, false, 0, kU},
        {"full_plate", full, 10, true, kU, kU},
        // d0 = 0.995 is a plate within 0.01; without the rule, growing once closes the 5 nm gaps.
        {"nearly_full_plate", lineArray(995, 5), 10, true, kU, kU},
        {"gap_closes_twice", lineArray(100, 30), 10, false, kU, 0},
        // No growth: the three maps agree and the width is 0; the density decides between plate and
        // nothing.
        {"no_growth_dense", lineArray(300, 200), 0, false, kU, kU},
        {"no_growth_sparse", lineArray(100, 400), 0, false, 0, 0},
        {"negative_growth", lineArray(300, 200), -5, false, kU, kU},
    };
    for (const auto& c : cases) {
        const auto g = gridOf(c.polys, c.expansion, c.plate);
        EXPECT_EQ(g->getEffWidth(50, 50), c.width) << c.name;
        EXPECT_EQ(g->getEffSpacing(50, 50), c.spacing) << c.name;
    }
    EffWidthGrid g(1000, 5000, 0, 0, 9999, 9999, 10);
    EXPECT_EQ(g.getEffWidth(0, 0), -1.0);  // not calculated yet
}

// Pieces handed to the calculation count as polygons of the map they are given for.
TEST(EffWidthGrid, PiecesCountWithTheirMap) {
    const LayoutPolygonSet drawn = lineArray(100, 150), once = lineArray(100, 150, true, 10),
                           twice = lineArray(100, 150, true, 20);
    EffWidthGrid g(1000, 5000, 0, 0, 99999, 99999, 10);
    g.calculateEffWidthSpacing(&drawn, &once, &twice);
    for (int32_t k = 3; k < 97; k += 9) {
        EXPECT_NEAR(g.getEffWidth(k, 99 - k), 100, 1e-6);
        EXPECT_NEAR(g.getEffSpacing(k, 99 - k), 150, 1e-6);
    }
}

// The deferred grid builds its maps over the bounding box of its polygons only when it calculates:
// the same cells as a direct grid over that box (x 10000..39850, y 5000..31000).
TEST(EffWidthGrid, DeferredMatchesADirectGridOverTheBoundingBox) {
    LayoutPolygonSet polys;
    for (int32_t x = 10000; x < 40000; x += 250) polys.push_back(rect(x, 12000, x + 100, 31000));
    polys.push_back({{20000, 5000}, {26000, 9000}, {21000, 9500}, {20000, 5000}});
    EffWidthGrid_Deferred deferred(1000, 5000, 0, 0, 99999, 99999, 10);
    EffWidthGrid_Deferred nothing(1000, 5000, 0, 0, 99999, 99999, 10);
    EffWidthGrid direct(1000, 5000, 10000, 5000, 39850, 31000, 10);
    for (const LayoutPolygon& p : polys) deferred.addPoly(p), direct.addPoly(p);
    deferred.calculateEffWidthSpacing(nullptr, nullptr, nullptr);
    direct.calculateEffWidthSpacing(nullptr, nullptr, nullptr);
    EXPECT_EQ((std::vector<int32_t>{deferred.getGridLeft(), deferred.getGridBottom(),
                                    deferred.getGridRangeX(), deferred.getGridRangeY()}),
              (std::vector<int32_t>{10000, 5000, 30, 27}));
    for (int32_t j = 0; j < direct.getGridRangeY(); ++j)
        for (int32_t i = 0; i < direct.getGridRangeX(); ++i) {
            ASSERT_EQ(deferred.getEffWidth(i, j), direct.getEffWidth(i, j)) << i << "," << j;
            ASSERT_EQ(deferred.getEffSpacing(i, j), direct.getEffSpacing(i, j)) << i << "," << j;
        }
    EXPECT_NEAR(deferred.getEffWidth(15, 12), 100, 1e-6);
    nothing.calculateEffWidthSpacing(nullptr, nullptr, nullptr);
    EXPECT_EQ(nothing.getEffWidth(0, 0), -1.0);
}

}  // namespace
