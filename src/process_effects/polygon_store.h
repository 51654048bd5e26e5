// Polygons normalised to the coverage rule of layout_polygon.h, kept compactly, and the covered
// area of any subset of them inside an axis-aligned box. Shared by ClipBox and DensityMap.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "process_effects/layout_polygon.h"

namespace process_effects {

using Area2 = __int128;  // twice an area, exact for any box of 64-bit coordinates

struct Box64 {
    int64_t x_low = 0;
    int64_t x_high = 0;
    int64_t y_low = 0;
    int64_t y_high = 0;
};

// Scratch buffers of one thread for coveredArea2.
struct AreaWorkspace;
struct AreaWorkspaceDeleter {
    void operator()(AreaWorkspace* w) const;
};
// A fresh workspace; one per thread that evaluates areas.
std::unique_ptr<AreaWorkspace, AreaWorkspaceDeleter> makeAreaWorkspace();

class PolygonStore {
public:
    // Adds one polygon given as rings; rings covering no area add nothing.
    void add(const LayoutPolygonSet& rings);
    // Adds one polygon given as a single ring.
    void add(const LayoutPolygon& ring);

    // Items (rectangles and polygons together); an item id is below this.
    size_t size() const { return rects_.size() + poly_bbox_.size(); }
    bool empty() const { return size() == 0; }
    // Bounding box of item `id`.
    Box64 bbox(uint32_t id) const;
    // Twice the area of the union of the listed items inside `box`; 0 for an empty list.
    Area2 coveredArea2(const uint32_t* ids, size_t n, const Box64& box, AreaWorkspace& ws) const;
    // Twice the area of all items inside `box`.
    Area2 coveredArea2(const Box64& box) const;
    // Drops every item and releases the memory.
    void clear();
    // Bytes held by the store's buffers.
    size_t memoryBytes() const;

private:
    static constexpr uint32_t kPolyBit = 0x80000000u;

    // Axis-aligned rectangles: x_low, y_low, x_high, y_high.
    std::vector<std::array<int32_t, 4>> rects_;
    // General polygons: normalised rings (outer counter-clockwise, holes clockwise).
    std::vector<LayoutPoint> points_;
    std::vector<uint32_t> ring_end_;  // end of each ring in points_
    std::vector<uint32_t> poly_end_;  // end of each polygon in ring_end_
    std::vector<std::array<int32_t, 4>> poly_bbox_;
    std::vector<Area2> poly_area2_;  // twice the covered area of each polygon

    // Normalises any rings through the clipper's non-zero simplification.
    void addWithClipper(const LayoutPolygonSet& rings);

    // Item ids: rectangles count up from 0, polygons carry kPolyBit.
    uint32_t itemId(size_t k, bool poly) const {
        return poly ? kPolyBit | static_cast<uint32_t>(k) : static_cast<uint32_t>(k);
    }

public:
    // Id of the k-th item in the order rectangles first, then polygons.
    uint32_t idAt(size_t k) const {
        return k < rects_.size() ? itemId(k, false) : itemId(k - rects_.size(), true);
    }
};

}  // namespace process_effects
