// A rectangle that collects polygons and tells how much of it they cover.
#pragma once

#include <cstdint>
#include <memory>

#include "process_effects/layout_polygon.h"

namespace process_effects {
class PolygonStore;
}

class ClipBox {
public:
    int64_t x_low = 0;
    int64_t x_high = 0;
    int64_t y_low = 0;
    int64_t y_high = 0;

    ClipBox() = default;
    ClipBox(int64_t x_low, int64_t x_high, int64_t y_low, int64_t y_high);
    ~ClipBox();
    ClipBox(ClipBox&&) noexcept;
    ClipBox& operator=(ClipBox&&) noexcept;
    // A copy holds the rectangle only.
    ClipBox(const ClipBox& other);
    ClipBox& operator=(const ClipBox& other);

    // Collects one closed ring (coverage rule of layout_polygon.h); a ring covering no area adds
    // nothing.
    void addPolygon(const LayoutPolygon& ring);
    // Collects one polygon given as an outer ring and its holes.
    void addPolygonWithHoles(const LayoutPolygonSet& rings);
    // Area of the union of the collected polygons inside the box; 0 when none is collected.
    double polygonArea() const;
    // Number of polygons collected.
    size_t polygonCount() const;
    // Drops the collected polygons and their memory.
    void releasePolygons();
    // Width times height, 0 for an empty rectangle.
    double boxArea() const;

private:
    std::unique_ptr<process_effects::PolygonStore> scanner_;
};
