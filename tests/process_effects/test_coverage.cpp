// The coverage rule of one box: non-zero winding within a polygon, union across polygons, holes,
// and polygons reaching out of the box. Every expected area is worked out by hand.
#include <gtest/gtest.h>

#include <vector>

#include "pe_test_util.h"
#include "process_effects/clip_box.h"

namespace {

using pe_test::cat;
using pe_test::rect;
using pe_test::reversed;

TEST(ClipBox, CoverageRuleByHand) {
    const LayoutPolygon outer = rect(0, 0, 30, 30), hole = reversed(rect(10, 10, 20, 20));
    const struct {
        const char* name;
        std::vector<LayoutPolygonSet> polygons;  // each entry: outer ring and holes
        double area;
    } cases[] = {
        {"square", {{rect(10, 10, 30, 40)}}, 600},
        {"clockwise_square", {{reversed(rect(10, 10, 30, 40))}}, 600},
        // Two triangles of 20 x 10 / 2 meeting at (10, 10), wound opposite ways.
        {"bowtie", {{{{0, 0}, {20, 20}, {20, 0}, {0, 20}}}}, 200},
        {"square_twice", {{cat(rect(0, 0, 20, 20), rect(0, 0, 20, 20))}}, 400},  // winding 2
        {"keyhole", {{cat(outer, hole)}}, 800},
        {"hole_ring", {{outer, hole}}, 800},
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

TEST(ClipBox, ReleaseDropsThePolygonsAndCopiesHoldOnlyTheRectangle) {
    ClipBox box(0, 10, 0, 20);
    box.addPolygon(rect(0, 0, 5, 5));
    box.addPolygon({{0, 0}, {1, 1}});  // no area: not collected
    EXPECT_EQ(box.polygonCount(), 1u);
    const ClipBox copy = box;
    EXPECT_EQ(copy.polygonArea(), 0.0);
    EXPECT_EQ(box.polygonArea(), 25.0);
    box.releasePolygons();
    EXPECT_EQ(box.polygonArea(), 0.0);
}

}  // namespace
