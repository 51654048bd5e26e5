// The coverage rule of one box: non-zero winding within a polygon, union across polygons, holes,
// and polygons reaching out of the box. Every expected area is worked out by hand.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pe_test_util.h"
#include "process_effects/clip_box.h"

namespace {

using pe_test::rect;
using pe_test::reversed;

struct CoverageCase {
    std::string name;
    std::vector<LayoutPolygonSet> polygons;  // each entry is one polygon: outer ring and holes
    double area;
};

class Coverage : public ::testing::TestWithParam<CoverageCase> {};

TEST_P(Coverage, AreaInsideTheBox) {
    ClipBox box(0, 100, 0, 100);
    for (const LayoutPolygonSet& p : GetParam().polygons) box.addPolygonWithHoles(p);
    EXPECT_EQ(box.polygonArea(), GetParam().area);
}

const LayoutPolygon kOuter = rect(0, 0, 30, 30);
const LayoutPolygon kHole = reversed(rect(10, 10, 20, 20));

INSTANTIATE_TEST_SUITE_P(
    Rule, Coverage,
    ::testing::Values(
        CoverageCase{"square", {{rect(10, 10, 30, 40)}}, 600},
        CoverageCase{"clockwise_square", {{reversed(rect(10, 10, 30, 40))}}, 600},
        // Two triangles of 20 x 10 / 2 meeting at (10, 10), wound opposite ways.
        CoverageCase{"bowtie", {{{{0, 0}, {20, 20}, {20, 0}, {0, 20}}}}, 200},
        // Traced twice: winding 2 is covered once.
        CoverageCase{"square_twice",
                     {{{{0, 0}, {20, 0}, {20, 20}, {0, 20}, {0, 0}, {20, 0}, {20, 20}, {0, 20}}}},
                     400},
        // Outer 30 x 30 with a 10 x 10 hole reached through a cut from the corner.
        CoverageCase{"keyhole",
                     {{{{0, 0},
                        {30, 0},
                        {30, 30},
                        {0, 30},
                        {0, 0},
                        {10, 10},
                        {10, 20},
                        {20, 20},
                        {20, 10},
                        {10, 10}}}},
                     800},
        CoverageCase{"hole_ring", {{kOuter, kHole}}, 800},
        CoverageCase{"hole_ring_all_reversed", {{reversed(kOuter), reversed(kHole)}}, 800},
        // A hole wound like its outer ring adds winding instead of removing it.
        CoverageCase{"hole_same_direction", {{kOuter, reversed(kHole)}}, 900},
        // Union: 400 + 400 - 100 overlap, whichever way each is drawn.
        CoverageCase{"overlap", {{rect(0, 0, 20, 20)}, {rect(10, 10, 30, 30)}}, 700},
        CoverageCase{
            "overlap_opposite", {{rect(0, 0, 20, 20)}, {reversed(rect(10, 10, 30, 30))}}, 700},
        CoverageCase{"same_twice", {{rect(0, 0, 20, 20)}, {rect(0, 0, 20, 20)}}, 400},
        // Another polygon fills the first one's hole.
        CoverageCase{"hole_filled", {{kOuter, kHole}, {rect(12, 12, 18, 18)}}, 836},
        // Part of a triangle beyond x = 100: the part inside is under x + y = 110, x from 90.
        CoverageCase{"triangle_cut", {{{{90, 0}, {110, 0}, {90, 20}}}}, 150},
        CoverageCase{"beyond_the_box", {{rect(-50, -50, 0, 100)}}, 0},
        CoverageCase{"covers_the_box", {{rect(-5, -5, 105, 105)}, {rect(10, 10, 20, 20)}}, 10000},
        CoverageCase{"flat", {{{{0, 0}, {10, 0}, {20, 0}}}}, 0},
        CoverageCase{"two_points", {{{{0, 0}, {10, 10}}}}, 0}, CoverageCase{"none", {}, 0}),
    [](const auto& info) { return info.param.name; });

TEST(ClipBox, ReleaseDropsThePolygonsAndCopiesHoldOnlyTheRectangle) {
    ClipBox box(0, 10, 0, 20);
    EXPECT_EQ(box.boxArea(), 200.0);
    box.addPolygon(rect(0, 0, 5, 5));
    box.addPolygon({{0, 0}, {1, 1}});  // no area: not collected
    EXPECT_EQ(box.polygonCount(), 1u);
    const ClipBox copy = box;
    EXPECT_EQ(copy.polygonArea(), 0.0);
    EXPECT_EQ(copy.x_high, 10);
    EXPECT_EQ(box.polygonArea(), 25.0);
    box.releasePolygons();
    EXPECT_EQ(box.polygonCount(), 0u);
    EXPECT_EQ(box.polygonArea(), 0.0);
}

// Many random rectangles in one box against the cell-by-cell count of the union. Odd trials
// draw some rectangles with an extra vertex on an edge, so that they are general polygons and
// the clipper, not the rectangle path, measures the box.
TEST(ClipBox, RandomRectangleUnionsAreExact) {
    std::mt19937 rng(5);
    std::uniform_int_distribution<int32_t> pos(-40, 140), size(1, 60), count(1, 40);
    for (int trial = 0; trial < 200; ++trial) {
        ClipBox box(0, 100, 0, 100);
        std::vector<pe_test::Rect64> rects;
        for (int k = count(rng); k > 0; --k) {
            const int32_t x = pos(rng), y = pos(rng), w = size(rng), h = size(rng);
            rects.push_back({x, y, x + w, y + h});
            LayoutPolygon p = rect(x, y, x + w, y + h);
            if (trial % 2 && rng() % 2) p.insert(p.begin() + 1, LayoutPoint{x + w / 2, y});
            box.addPolygon(rng() % 2 ? p : reversed(p));
        }
        EXPECT_EQ(box.polygonArea(), double(pe_test::unionAreaByCells(rects, {0, 0, 100, 100})))
            << "trial " << trial;
    }
}

}  // namespace
