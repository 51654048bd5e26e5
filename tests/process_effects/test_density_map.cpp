// ClipBox's coverage rule and DensityMap: the grid and windows it lays out, densities against exact
// rectangle unions, window queries worked out by hand, and a thickness model reading it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "pe_test_util.h"
#include "process_effects/density_map.h"
#include "technology/process_model_thickness.h"

namespace {

using pe_test::cat;
using pe_test::rect;
using pe_test::reversed;

// Non-zero winding within a polygon, union across polygons, holes, and polygons reaching out of the
// box. Every expected area is worked out by hand.
TEST(ClipBox, CoverageRuleByHand) {
    const LayoutPolygon outer = rect(0, 0, 30, 30), hole = reversed(rect(10, 10, 20, 20));
    const struct {
        const char* name;
        std::vector<LayoutPolygonSet> polygons;  // each entry: outer ring and holes
        double area;
    } cases[] = {
        // Two triangles of 20 x 10 / 2 meeting at (10, 10), wound opposite ways.
        {"bowtie", {{{{0, 0}, {20, 20}, {20, 0}, {0, 20}}}}, 200},
        {"square_twice", {{cat(rect(0, 0, 20, 20), rect(0, 0, 20, 20))}}, 400},  // winding 2
        {"keyhole", {{cat(outer, hole)}}, 800},
        {"hole_ring_all_reversed", {{reversed(outer), reversed(hole)}}, 800},
        // A hole wound like its outer ring adds winding instead of removing it.
        {"hole_same_direction", {{outer, reversed(hole)}}, 900},
        {"overlap_opposite", {{rect(0, 0, 20, 20)}, {reversed(rect(10, 10, 30, 30))}}, 700},
        {"hole_filled", {{outer, hole}, {rect(12, 12, 18, 18)}}, 836},
        // Part of a triangle beyond x = 100: the part inside is under x + y = 110, x from 90.
        {"triangle_cut", {{{{90, 0}, {110, 0}, {90, 20}}}}, 150},
        {"beyond_the_box", {{rect(-50, -50, 0, 100)}}, 0},
        {"covers_the_box", {{rect(-5, -5, 105, 105)}, {rect(10, 10, 20, 20)}}, 10000},
        {"flat", {{{{0, 0}, {10, 0}, {20, 0}}}}, 0},
    };
    for (const auto& c : cases) {
        ClipBox box(0, 100, 0, 100);
        for (const LayoutPolygonSet& p : c.polygons) box.addPolygonWithHoles(p);
        EXPECT_EQ(box.polygonArea(), c.area) << c.name;
    }
}

TEST(ClipBox, CopiesHoldOnlyTheRectangleAndReleaseDropsThePolygons) {
    ClipBox box(0, 10, 0, 20);
    box.addPolygon(rect(0, 0, 5, 5));
    box.addPolygon({{0, 0}, {1, 1}});  // no area: not collected
    EXPECT_EQ(box.polygonCount(), 1u);
    EXPECT_EQ(ClipBox(box).polygonArea(), 0.0);
    EXPECT_EQ(box.polygonArea(), 25.0);
    box.releasePolygons();
    EXPECT_EQ(box.polygonArea(), 0.0);
}

struct Rect64 {
    int64_t x0, y0, x1, y1;
};

// Exact area of the union of rectangles inside `clip`: every cell of the grid made by all rectangle
// edges is covered or not as a whole, as its lower left corner is.
int64_t unionAreaByCells(const std::vector<Rect64>& rects, const Rect64& clip) {
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
        for (size_t b = 0; b + 1 < ys.size(); ++b)
            if (std::any_of(rects.begin(), rects.end(), [&](const Rect64& r) {
                    return r.x0 <= xs[a] && xs[a] < r.x1 && r.y0 <= ys[b] && ys[b] < r.y1;
                }))
                area += (xs[a + 1] - xs[a]) * (ys[b + 1] - ys[b]);
    return area;
}

// A frame without a grid or an extent has no cells.
TEST(DensityMap, EmptyGrids) {
    for (const auto& [grid, right] : {std::pair{0, 9}, std::pair{3, -1}}) {
        DensityMap m(grid, 5, 0, 0, right, 9);
        m.addOverlappedPoly(rect(0, 0, 9, 9));
        m.calculateDensity({rect(0, 0, 9, 9)});
        EXPECT_TRUE(m.densities.empty());
        EXPECT_EQ(m.getDensity(5, 5, 4), 0.0);
        EXPECT_EQ(m.getGridDensity(0, 0), -1.0);
    }
}

TEST(DensityMap, CellValuesAndTheFormerValue) {
    // 3 x 2 cells of 10; the windows stop at the frame's last coordinate, so the third column and
    // the second row are 9 wide.
    DensityMap m(10, 10, 0, 0, 29, 19);
    m.addOverlappedPoly(rect(0, 0, 15, 20));
    m.addOverlappedPoly(rect(5, 0, 10, 20));    // inside the first: counts once
    m.addOverlappedPoly(rect(100, 0, 120, 5));  // outside every window: dropped at once
    EXPECT_EQ(m.pendingPolygons(), 2u);
    m.densities[2] = 45.0;  // a value already in a cell adds to its area
    m.calculateDensity({reversed(rect(20, 10, 25, 20))});
    EXPECT_EQ(m.densities,
              (std::vector<double>{1.0, 0.5, 45.0 / 90, 90.0 / 90, 45.0 / 90, 45.0 / 81}));
    EXPECT_EQ(m.getGridDensity(3, 0), -1.0);
}

// A polygon with holes counts by all its rings, whichever comes first: here the hole lies beyond
// the frame, and only the outer ring reaches the single window 0..99.
TEST(DensityMap, HoleRingListedFirst) {
    DensityMap m(100, 100, 0, 0, 99, 99);
    m.addOverlappedPolyWithHoles({reversed(rect(150, 10, 250, 90)), rect(50, 0, 300, 100)});
    m.calculateDensity();
    EXPECT_EQ(m.getGridDensity(0, 0), 49.0 * 99.0 / (99.0 * 99.0));
}

// A frame of x 0..100 and y 0..34 takes 11 x 4 cells: 101 / 11 rounds up to cells of 10. Windows
// of 25 reach 7 before and 8 after each cell, stopped 3 beyond the frame, or at the frame for a
// negative extension.
TEST(DensityMap, WindowsByHand) {
    const struct {
        int32_t extend, i, j;
        std::array<int64_t, 4> box;  // x low, x high, y low, y high
    } cases[] = {
        {3, 0, 0, {-3, 18, -3, 18}}, {3, 1, 1, {3, 28, 3, 28}}, {3, 10, 3, {93, 103, 23, 37}},
        {-4, 0, 3, {0, 18, 23, 34}}, {3, 11, 0, {0, 0, 0, 0}},  {3, 0, -1, {0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        const DensityMap m(10, 25, 0, 0, 100, 34, c.extend);
        ASSERT_EQ((std::vector<int32_t>{m.range_x, m.range_y, m.grid_size}),
                  (std::vector<int32_t>{11, 4, 10}));
        const ClipBox b = m.getClipBox(c.i, c.j);
        EXPECT_EQ((std::array<int64_t, 4>{b.x_low, b.x_high, b.y_low, b.y_high}), c.box)
            << c.extend << ": " << c.i << "," << c.j;
    }
}

// Independent truth: each cell's density is the exact union area of the rectangles in its window,
// counted cell by cell on the grid of their edges, over the window's area.
TEST(DensityMap, RectangleUnionsExactlyAsCounted) {
    std::mt19937 engine(23);
    auto uni = [&](int32_t a, int32_t b) {
        return std::uniform_int_distribution<int32_t>(a, b)(engine);
    };
    for (int trial = 0; trial < 10; ++trial) {
        const int32_t left = uni(-100, 100), bottom = uni(-100, 100);
        DensityMap map(uni(20, 60), uni(0, 150), left, bottom, left + 299, bottom + 199,
                       uni(-5, 20));
        std::vector<Rect64> rects;
        for (int k = 0; k < 150; ++k) {
            const int32_t x = left + uni(-30, 300), y = bottom + uni(-30, 200);
            const int32_t w = uni(1, 80), h = uni(1, 80);
            rects.push_back({x, y, x + w, y + h});
            LayoutPolygon p = rect(x, y, x + w, y + h);
            if (uni(0, 1)) p.insert(p.begin() + 1, LayoutPoint{x + w / 2, y});
            map.addOverlappedPoly(uni(0, 1) ? p : reversed(p));
        }
        map.calculateDensity();
        for (int32_t j = 0; j < map.range_y; ++j)
            for (int32_t i = 0; i < map.range_x; ++i) {
                const ClipBox b = map.getClipBox(i, j);
                const double area =
                    double(unionAreaByCells(rects, {b.x_low, b.y_low, b.x_high, b.y_high}));
                ASSERT_EQ(map.getGridDensity(i, j), area / b.boxArea())
                    << "trial " << trial << " cell " << i << "," << j;
            }
    }
}

TEST(DensityMap, WindowQueriesByHand) {
    // Frame 0..999 x 0..499, cells of 100, column 0 covered: a window leaving the frame shrinks to
    // it.
    DensityMap m(100, 100, 0, 0, 999, 499);
    m.addOverlappedPoly(rect(0, 0, 100, 499));
    m.calculateDensity();
    const double queries[][4] = {
        // x, y, box size, density
        {50, 250, 100, 1.0},      // inside column 0
        {100, 250, 100, 0.5},     // half on column 0
        {100, 250, 5, 0.4},       // window 98..103: an odd box reaches 2 back and 3 ahead
        {0, 250, 400, 0.5},       // window 0..200 x 50..450: 100 of 200 wide covered
        {50, 450, 200, 2 / 3.0},  // window 0..150 x 350..499
        {-300, 250, 400, 0.0},    // window misses the frame
        {500, 250, 0, 0.0},       // no window
        {300, 250, 200, 0.0}};
    for (const auto& q : queries)
        EXPECT_DOUBLE_EQ(m.getDensity(q[0], q[1], q[2]), q[3])
            << q[0] << "," << q[1] << "," << q[2];

    // Windows of 300 on cells of 100 overlap: a full frame reads 4 in a 100 window, since the query
    // sums the windows of cells 4 and 5 on each axis, each covering the query window.
    DensityMap wide(100, 300, 0, 0, 999, 999);
    wide.addOverlappedPoly(rect(-10, -10, 1010, 1010));
    wide.calculateDensity();
    EXPECT_EQ(wide.getDensity(500, 500, 100), 4.0);
}

// Thickness models read a map built from polygons: frame of 100 um in nm, cells of 1 um, the strip
// x < 30 um covered. The 50 um box at (50 um, 50 um) spans x 25..75 um, of which 5 um is covered:
// density 0.1, and the table (0, -0.1) .. (1, 0.1) gives 1 - 0.08.
TEST(DensityMap, ThicknessModelReadsTheMap) {
    DensityMap map(1000, 1000, 0, 0, 99999, 99999);
    map.addOverlappedPoly(rect(-500, -500, 30000, 100500));
    map.calculateDensity();
    ThicknessDensityModel model;
    model.setDensityTable({{0.0, -0.1}, {1.0, 0.1}});
    model.setDBU(0.001);  // the default 50 um box in nm
    EXPECT_DOUBLE_EQ(model.getThickness(50000, 50000, map), 0.92);
    // Near the frame the window shrinks to x 0..35 um, 30 um of it covered.
    EXPECT_DOUBLE_EQ(model.getThickness(10000, 50000, map), 0.9 + 0.2 * 30.0 / 35.0);
}

}  // namespace
