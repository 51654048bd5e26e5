// Integer layout polygons as the process-effect maps take them.
//
// Coverage rule: within one polygon (one ring, or an outer ring with its holes) a point is covered
// when the winding number of the polygon's rings around it is not zero, whatever the direction
// the polygon is drawn in; a self-crossing ring thus covers each of its loops. Holes are rings
// that wind against their outer ring. Across polygons coverage is the union: an area covered by
// several polygons counts once.
#pragma once

#include <cstdint>
#include <vector>

struct LayoutPoint {
    int32_t x = 0;
    int32_t y = 0;
    friend bool operator==(const LayoutPoint&, const LayoutPoint&) = default;
};

// One closed ring; a last point that repeats the first closes it and may be left out.
using LayoutPolygon = std::vector<LayoutPoint>;
using LayoutPolygonSet = std::vector<LayoutPolygon>;
