// DensityMap: the grid it lays out, densities against the stated every-cell loop and against
// exact rectangle unions, window queries worked out by hand, and a thickness model reading it.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "pe_test_util.h"
#include "process_effects/density_map.h"
#include "technology/process_model_thickness.h"

namespace {

using pe_test::rect;
using pe_test::reversed;
using pe_test::StatedGrid;

TEST(DensityMap, GridOfTheConstructor) {
    struct Case {
        int32_t grid, win, right, top;
        int32_t range_x, range_y, grid_size, win_size;
    };
    // Frame from 0 to right/top inclusive: 10 wide with grid 3 is 4 cells of 2.5, rounded up.
    for (const Case& c : {Case{3, 0, 9, 9, 4, 4, 3, 3}, Case{3, 7, 9, 9, 4, 4, 3, 7},
                          Case{5, 5, 9, 9, 2, 2, 5, 5},      // 10 / 2 is exactly 5: no round-up
                          Case{100, 0, 9, 9, 1, 1, 10, 10},  // grid larger than the frame
                          Case{3, 0, 9, 29, 4, 10, 3, 3},    // the larger step decides
                          Case{1000, 5000, 1000000, 1000000, 1001, 1001, 1000, 5000}}) {
        DensityMap m(c.grid, c.win, 0, 0, c.right, c.top);
        EXPECT_EQ(m.range_x, c.range_x);
        EXPECT_EQ(m.range_y, c.range_y);
        EXPECT_EQ(m.grid_size, c.grid_size);
        EXPECT_EQ(m.win_size, c.win_size);
        EXPECT_EQ(m.grid_area, double(c.grid_size) * c.grid_size);
        EXPECT_EQ(m.densities.size(), size_t(c.range_x) * c.range_y);
    }
}

TEST(DensityMap, WindowsOfTheCells) {
    // Grid 3 and window 8 on 0..9: m = 2, r = 3, and extend 1 lets the edge windows out by 1.
    DensityMap m(3, 8, 0, 0, 9, 9, 1);
    const std::vector<std::pair<int64_t, int64_t>> x{{-1, 6}, {1, 9}, {4, 10}, {7, 10}};
    for (int32_t i = 0; i < 4; ++i) {
        const ClipBox b = m.getClipBox(i, 2);
        EXPECT_EQ(b.x_low, x[i].first) << i;
        EXPECT_EQ(b.x_high, x[i].second) << i;
        EXPECT_EQ(b.y_low, x[2].first);
        EXPECT_EQ(b.y_high, x[2].second);
    }
    EXPECT_EQ(m.getClipBox(4, 0).boxArea(), 0.0);
    DensityMap negative(3, 8, 0, 0, 9, 9, -5);  // counts as 0
    EXPECT_EQ(negative.getClipBox(0, 0).x_low, 0);
}

TEST(DensityMap, WithoutCellsNothingHappens) {
    for (DensityMap* m :
         {new DensityMap(0, 5, 0, 0, 9, 9), new DensityMap(3, 5, 0, 0, -1, 9), new DensityMap()}) {
        EXPECT_EQ(m->grid_size, 0);
        m->addOverlappedPoly(rect(0, 0, 9, 9));
        EXPECT_EQ(m->pendingPolygons(), 0u);
        m->calculateDensity({rect(0, 0, 9, 9)});
        m->calculateDensity();
        EXPECT_TRUE(m->densities.empty());
        EXPECT_EQ(m->getDensity(5, 5, 4), 0.0);
        EXPECT_EQ(m->getGridDensity(0, 0), -1.0);
        delete m;
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
    EXPECT_EQ(m.pendingPolygons(), 0u);
    EXPECT_EQ(m.densities,
              (std::vector<double>{1.0, 0.5, 45.0 / 90, 90.0 / 90, 45.0 / 90, 45.0 / 81}));
    EXPECT_EQ(m.getGridDensity(2, 1), 45.0 / 81);
    EXPECT_EQ(m.getGridDensity(3, 0), -1.0);
    EXPECT_EQ(m.getGridDensity(0, -1), -1.0);
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

// Random frames, grids, windows and extensions, with rectilinear polygons of every kind the
// coverage rule names: every cell must equal the stated loop over all cells exactly, since all
// crossings lie on the integer grid; and so must window queries.
TEST(DensityMap, SameAsTheStatedLoopOnRectilinearInput) {
    std::mt19937 rng(11);
    auto uni = [&](int32_t a, int32_t b) {
        return std::uniform_int_distribution<int32_t>(a, b)(rng);
    };
    for (int trial = 0; trial < 60; ++trial) {
        const int32_t left = uni(-200, 200), bottom = uni(-200, 200);
        const int32_t right = left + uni(0, 300), top = bottom + uni(0, 300);
        const int32_t grid = uni(1, 70), win = uni(0, 160), extend = uni(-5, 30);
        DensityMap map(grid, win, left, bottom, right, top, extend);
        const StatedGrid ref(grid, win, left, bottom, right, top, extend);
        ASSERT_EQ(map.range_x, ref.range_x);
        ASSERT_EQ(map.range_y, ref.range_y);
        ASSERT_EQ(map.grid_size, ref.grid_size);
        for (int32_t j = 0; j < map.range_y; ++j)
            for (int32_t i = 0; i < map.range_x; ++i) {
                const ClipBox b = map.getClipBox(i, j);
                const auto& r = ref.boxes[j * ref.range_x + i];
                ASSERT_EQ((std::array<int64_t, 4>{b.x_low, b.x_high, b.y_low, b.y_high}), r);
            }

        LayoutPolygonSet polys;
        for (int k = uni(0, 40); k > 0; --k) {
            const int32_t x = uni(left - 60, right + 20), y = uni(bottom - 60, top + 20);
            const int32_t w = uni(1, 60), h = uni(1, 60);
            LayoutPolygon p;
            switch (uni(0, 3)) {
                case 0:
                    p = rect(x, y, x + w, y + h);
                    break;
                case 1:  // L shape
                    p = {{x, y},         {x + w, y},     {x + w, y + 2},
                         {x + 2, y + 2}, {x + 2, y + h}, {x, y + h}};
                    break;
                case 2:  // two rectangles in one ring, joined along a vertical edge: may cross
                    p = {{x, y},
                         {x + w, y},
                         {x + w, y + h},
                         {x, y + h},
                         {x, y},
                         {x, y + h / 2},
                         {x - 7, y + h / 2},
                         {x - 7, y + h + 9},
                         {x + 5, y + h + 9},
                         {x + 5, y + h / 2},
                         {x, y + h / 2}};
                    break;
                default:  // keyhole-free ring with a hole, added below as two rings
                    break;
            }
            if (p.empty()) {
                const LayoutPolygonSet rings{rect(x, y, x + w + 4, y + h + 4),
                                             reversed(rect(x + 2, y + 2, x + w + 2, y + h + 2))};
                map.addOverlappedPolyWithHoles(rings);
                // The stated loop takes single rings: the same area as two polygons, the
                // outer one minus the hole expressed as its four side strips.
                polys.push_back(rect(x, y, x + w + 4, y + 2));
                polys.push_back(rect(x, y + h + 2, x + w + 4, y + h + 4));
                polys.push_back(rect(x, y, x + 2, y + h + 4));
                polys.push_back(rect(x + w + 2, y, x + w + 4, y + h + 4));
                continue;
            }
            if (uni(0, 1)) p = reversed(p);
            map.addOverlappedPoly(p);
            polys.push_back(p);
        }
        map.calculateDensity();
        const std::vector<double> expected = ref.densities(polys);
        ASSERT_EQ(map.densities.size(), expected.size());
        for (size_t k = 0; k < expected.size(); ++k)
            ASSERT_EQ(map.densities[k], expected[k]) << "trial " << trial << " cell " << k;
        for (int q = 0; q < 50; ++q) {
            const int32_t x = uni(left - 50, right + 50), y = uni(bottom - 50, top + 50);
            const int32_t box = uni(0, 200);
            ASSERT_EQ(map.getDensity(x, y, box), ref.density(expected, x, y, box))
                << "trial " << trial << " query " << x << "," << y << "," << box;
        }
    }
}

// General polygons, self-crossing ones included: the clipper rounds crossings to the integer grid,
// and the map cuts at tile edges where the stated loop cuts only at window edges, so the two may
// differ by rounded crossings: each moves an edge by at most half a unit, over at most the
// window's width. The bound allows 8 such moves per polygon in the window.
TEST(DensityMap, CloseToTheStatedLoopOnGeneralPolygons) {
    std::mt19937 rng(17);
    auto uni = [&](int32_t a, int32_t b) {
        return std::uniform_int_distribution<int32_t>(a, b)(rng);
    };
    for (int trial = 0; trial < 20; ++trial) {
        const int32_t grid = uni(500, 3000), win = uni(0, 8000), extend = uni(0, 2000);
        DensityMap map(grid, win, 0, 0, 30000, 20000, extend);
        const StatedGrid ref(grid, win, 0, 0, 30000, 20000, extend);
        LayoutPolygonSet polys;
        for (int k = uni(1, 60); k > 0; --k) {
            const int32_t cx = uni(-1000, 31000), cy = uni(-1000, 21000);
            LayoutPolygon p;
            for (int v = uni(3, 12); v > 0; --v)
                p.push_back({cx + uni(-3000, 3000), cy + uni(-3000, 3000)});  // often self-crossing
            polys.push_back(p);
            map.addOverlappedPoly(p);
        }
        map.calculateDensity();
        const std::vector<double> expected = ref.densities(polys);
        for (size_t k = 0; k < expected.size(); ++k) {
            const auto& b = ref.boxes[k];
            const double w = double(b[1] - b[0]), h = double(b[3] - b[2]);
            const double bound = 8.0 * double(polys.size()) * 0.5 * std::max(w, h) / (w * h);
            const double diff = std::abs(map.densities[k] - expected[k]);
            ASSERT_LE(diff, bound) << "trial " << trial << " cell " << k;
        }
    }
}

// Independent truth: each cell's density is the exact union area of the rectangles in its
// window, counted cell by cell on the grid of their edges, over the window's area.
TEST(DensityMap, RectangleUnionsExactlyAsCounted) {
    std::mt19937 rng(23);
    auto uni = [&](int32_t a, int32_t b) {
        return std::uniform_int_distribution<int32_t>(a, b)(rng);
    };
    for (int trial = 0; trial < 10; ++trial) {
        const int32_t grid = uni(20, 60), win = uni(0, 150), extend = uni(0, 20);
        DensityMap map(grid, win, 0, 0, 299, 199, extend);
        std::vector<pe_test::Rect64> rects;
        for (int k = 0; k < 150; ++k) {
            const int32_t x = uni(-30, 300), y = uni(-30, 200), w = uni(1, 80), h = uni(1, 80);
            rects.push_back({x, y, x + w, y + h});
            map.addOverlappedPoly(uni(0, 1) ? rect(x, y, x + w, y + h)
                                            : reversed(rect(x, y, x + w, y + h)));
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
    struct Query {
        int32_t x, y, box;
        double density;
    };
    for (const Query& q : {
             Query{50, 500, 100, 1.0},    // inside column 0
             Query{100, 500, 100, 0.5},   // half on column 0
             Query{0, 500, 400, 0.5},     // window 0..200 x 300..700: 100 of 200 wide covered
             Query{-300, 500, 400, 0.0},  // window misses the frame
             Query{500, 500, 0, 0.0},     // no window
             Query{300, 500, 200, 0.0},
         })
        EXPECT_EQ(m.getDensity(q.x, q.y, q.box), q.density) << q.x << "," << q.y << "," << q.box;

    // Windows of 300 on cells of 100 overlap: a full frame reads 4 in a 100 window, since the
    // query sums the windows of cells 4 and 5 on each axis, each covering the query window.
    DensityMap wide(100, 300, 0, 0, 999, 999);
    wide.addOverlappedPoly(rect(-10, -10, 1010, 1010));
    wide.calculateDensity();
    EXPECT_EQ(wide.getGridDensity(0, 0), 1.0);
    EXPECT_EQ(wide.getDensity(500, 500, 100), 4.0);
}

// A thickness model reads the density of a map built from polygons: frame of 100 um in nm, cells
// of 1 um, the strip x < 30 um covered. The 50 um box at (50 um, 50 um) spans x 25..75 um, of
// which 5 um is covered: density 0.1, and the table (0, -0.1) .. (1, 0.1) gives 1 - 0.08.
TEST(DensityMap, ThicknessModelReadsTheMap) {
    DensityMap map(1000, 1000, 0, 0, 99999, 99999);
    map.addOverlappedPoly(rect(-500, -500, 30000, 100500));
    map.calculateDensity();
    EXPECT_DOUBLE_EQ(map.getDensity(50000, 50000, 50000), 0.1);

    ThicknessDensityModel model;
    model.setDensityTable({{0.0, -0.1}, {1.0, 0.1}});
    model.setDBU(0.001);  // the default 50 um box in nm
    ASSERT_EQ(model.scaled_boxes.size(), 1u);
    EXPECT_DOUBLE_EQ(model.getThickness(50000, 50000, map), 0.92);
    // Near the frame the window shrinks to x 0..35 um, 30 um of it covered.
    EXPECT_DOUBLE_EQ(model.getThickness(10000, 50000, map), 0.9 + 0.2 * 30.0 / 35.0);

    ThicknessDensityWidthModel by_width;  // density axis 0..1, one width
    by_width.table.widths = {0.0, 1.0};
    by_width.table.spacings = {0.1};
    by_width.table.values = {0.0, 0.5};
    by_width.boxes = {{50.0, 1.0}};
    by_width.setDBU(0.001);
    EXPECT_DOUBLE_EQ(by_width.getThickness(0.1, 50000, 50000, map), 0.05);
}

}  // namespace
