// DensityMap: the grid it lays out, densities against the stated every-cell loop and against exact
// rectangle unions, window queries worked out by hand, and a thickness model reading it.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "pe_test_util.h"
#include "process_effects/density_map.h"
#include "technology/process_model_thickness.h"

namespace {

using pe_test::rect;
using pe_test::reversed;
using pe_test::StatedGrid;

// A frame of 1000001 takes 1001 cells of 1000; a frame without a grid or an extent has no cells.
TEST(DensityMap, LargeAndEmptyGrids) {
    const DensityMap big(1000, 5000, 0, 0, 1000000, 1000000);
    EXPECT_EQ((std::vector<int32_t>{big.range_x, big.grid_size, big.win_size}),
              (std::vector<int32_t>{1001, 1000, 5000}));
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
    m.clearDensity();
    EXPECT_EQ(m.densities, std::vector<double>(6, 0.0));
}

// A polygon with holes counts by all its rings, whichever comes first: here the hole lies beyond
// the frame, and only the outer ring reaches the single window 0..99.
TEST(DensityMap, HoleRingListedFirst) {
    DensityMap m(100, 100, 0, 0, 99, 99);
    m.addOverlappedPolyWithHoles({reversed(rect(150, 10, 250, 90)), rect(50, 0, 300, 100)});
    m.calculateDensity();
    EXPECT_EQ(m.getGridDensity(0, 0), 49.0 * 99.0 / (99.0 * 99.0));
}

// Random frames, grids, windows and extensions with rectilinear polygons (self-crossing rings and
// rings with holes among them): windows, cells and queries equal the stated loop exactly, since all
// crossings lie on the integer grid.
TEST(DensityMap, SameAsTheStatedLoopOnRectilinearInput) {
    pe_test::Rng uni(11);
    for (int trial = 0; trial < 60; ++trial) {
        const int32_t left = uni(-200, 200), bottom = uni(-200, 200);
        const int32_t right = left + uni(0, 300), top = bottom + uni(0, 300);
        const int32_t grid = uni(1, 70), win = uni(0, 160), extend = uni(-5, 30);
        DensityMap map(grid, win, left, bottom, right, top, extend);
        const StatedGrid ref(grid, win, left, bottom, right, top, extend);
        ASSERT_EQ(map.range_x, ref.range_x);
        ASSERT_EQ(map.range_y, ref.range_y);
        for (int32_t j = 0; j < map.range_y; ++j)
            for (int32_t i = 0; i < map.range_x; ++i) {
                const ClipBox b = map.getClipBox(i, j);
                ASSERT_EQ((std::array<int64_t, 4>{b.x_low, b.x_high, b.y_low, b.y_high}),
                          ref.boxes[j * ref.range_x + i]);
            }
        LayoutPolygonSet polys;
        for (int k = uni(0, 40); k > 0; --k) {
            const int32_t x = uni(left - 60, right + 20), y = uni(bottom - 60, top + 20);
            const int32_t w = uni(1, 60), h = uni(1, 60);
            LayoutPolygon p = rect(x, y, x + w, y + h);
            const int kind = uni(0, 3);
            if (kind == 1)  // L shape
                p = {{x, y},         {x + w, y},     {x + w, y + 2},
                     {x + 2, y + 2}, {x + 2, y + h}, {x, y + h}};
            if (kind == 2)  // two rectangles in one ring: may cross
                p = pe_test::cat(p, rect(x - 7, y + h / 2, x + 5, y + h + 9));
            if (kind == 3) {
                // A ring with a hole; the stated loop takes single rings: the same area as four
                // side strips.
                map.addOverlappedPolyWithHoles(
                    {rect(x, y, x + w + 4, y + h + 4),
                     reversed(rect(x + 2, y + 2, x + w + 2, y + h + 2))});
                for (const LayoutPolygon& s :
                     {rect(x, y, x + w + 4, y + 2), rect(x, y + h + 2, x + w + 4, y + h + 4),
                      rect(x, y, x + 2, y + h + 4), rect(x + w + 2, y, x + w + 4, y + h + 4)})
                    polys.push_back(s);
                continue;
            }
            if (uni(0, 1)) p = reversed(p);
            map.addOverlappedPoly(p);
            polys.push_back(p);
        }
        map.calculateDensity();
        const std::vector<double> expected = ref.densities(polys);
        ASSERT_EQ(map.densities, expected) << "trial " << trial;
        for (int q = 0; q < 50; ++q) {
            const int32_t x = uni(left - 50, right + 50), y = uni(bottom - 50, top + 50);
            const int32_t box = uni(0, 200);
            ASSERT_EQ(map.getDensity(x, y, box), ref.density(expected, x, y, box))
                << "trial " << trial << " query " << x << "," << y << "," << box;
        }
    }
}

// General, often self-crossing polygons: the clipper rounds crossings to the integer grid, and the
// map cuts at tile edges where the stated loop cuts only at window edges, so the two may differ by
// rounded crossings, each moving an edge by at most half a unit over at most the window's width.
// The bound allows 8 such moves per polygon in the window.
TEST(DensityMap, CloseToTheStatedLoopOnGeneralPolygons) {
    pe_test::Rng uni(17);
    for (int trial = 0; trial < 20; ++trial) {
        const int32_t grid = uni(500, 3000), win = uni(0, 8000), extend = uni(0, 2000);
        DensityMap map(grid, win, 0, 0, 30000, 20000, extend);
        const StatedGrid ref(grid, win, 0, 0, 30000, 20000, extend);
        LayoutPolygonSet polys;
        for (int k = uni(1, 60); k > 0; --k) {
            const int32_t cx = uni(-1000, 31000), cy = uni(-1000, 21000);
            LayoutPolygon p;
            for (int v = uni(3, 12); v > 0; --v)
                p.push_back({cx + uni(-3000, 3000), cy + uni(-3000, 3000)});
            polys.push_back(p);
            map.addOverlappedPoly(p);
        }
        map.calculateDensity();
        const std::vector<double> expected = ref.densities(polys);
        for (size_t k = 0; k < expected.size(); ++k) {
            const double w = double(ref.boxes[k][1] - ref.boxes[k][0]);
            const double h = double(ref.boxes[k][3] - ref.boxes[k][2]);
            ASSERT_LE(std::abs(map.densities[k] - expected[k]),
                      8.0 * double(polys.size()) * 0.5 * std::max(w, h) / (w * h))
                << "trial " << trial << " cell " << k;
        }
    }
}

// Independent truth: each cell's density is the exact union area of the rectangles in its window,
// counted cell by cell on the grid of their edges, over the window's area.
TEST(DensityMap, RectangleUnionsExactlyAsCounted) {
    pe_test::Rng uni(23);
    for (int trial = 0; trial < 10; ++trial) {
        DensityMap map(uni(20, 60), uni(0, 150), 0, 0, 299, 199, uni(0, 20));
        std::vector<pe_test::Rect64> rects;
        for (int k = 0; k < 150; ++k) {
            const int32_t x = uni(-30, 300), y = uni(-30, 200), w = uni(1, 80), h = uni(1, 80);
            rects.push_back({x, y, x + w, y + h});
            LayoutPolygon p = rect(x, y, x + w, y + h);
            if (uni(0, 1)) p.insert(p.begin() + 1, LayoutPoint{x + w / 2, y});
            map.addOverlappedPoly(uni(0, 1) ? p : reversed(p));
        }
        map.calculateDensity();
        for (int32_t j = 0; j < map.range_y; ++j)
            for (int32_t i = 0; i < map.range_x; ++i) {
                const ClipBox b = map.getClipBox(i, j);
                const double area = double(
                    pe_test::unionAreaByCells(rects, {b.x_low, b.y_low, b.x_high, b.y_high}));
                ASSERT_EQ(map.getGridDensity(i, j), area / b.boxArea())
                    << "trial " << trial << " cell " << i << "," << j;
            }
    }
}

TEST(DensityMap, WindowQueriesByHand) {
    // Frame 0..999, cells of 100, column 0 covered: a window leaving the frame shrinks to it.
    DensityMap m(100, 100, 0, 0, 999, 999);
    m.addOverlappedPoly(rect(0, 0, 100, 999));
    m.calculateDensity();
    const double queries[][4] = {
        // x, y, box size, density
        {50, 500, 100, 1.0},    // inside column 0
        {100, 500, 100, 0.5},   // half on column 0
        {0, 500, 400, 0.5},     // window 0..200 x 300..700: 100 of 200 wide covered
        {-300, 500, 400, 0.0},  // window misses the frame
        {500, 500, 0, 0.0},     // no window
        {300, 500, 200, 0.0}};
    for (const auto& q : queries)
        EXPECT_EQ(m.getDensity(q[0], q[1], q[2]), q[3]) << q[0] << "," << q[1] << "," << q[2];

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
