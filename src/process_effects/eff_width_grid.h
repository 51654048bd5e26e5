// Effective wire width and spacing per grid cell, from the density of a layer as drawn and grown
// by one and two steps, without tracing wires.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "process_effects/density_map.h"
#include "process_effects/layout_polygon.h"

// The closed ring with each vertex moved outward by `distance` where both its edges move by that
// distance (the mitre point), rounded to the layout grid; the last point repeats the first. A
// negative distance shrinks. `out` is left empty for fewer than four points (a closed triangle
// has four). Vertices where the ring doubles back move by at most four times the distance.
void expandPiece(const LayoutPolygon& points, LayoutPolygon& out, int32_t distance);

class EffWidthGrid {
public:
    // Width and spacing not finite; users compare against it.
    static constexpr double kUnbounded = 1e100;

    // Three maps over the frame, windows reaching 2 * expansion beyond it; a negative expansion
    // counts as 0.
    EffWidthGrid(int32_t grid, int32_t win, int32_t left, int32_t bottom, int32_t right,
                 int32_t top, int32_t expansion);
    virtual ~EffWidthGrid();
    EffWidthGrid(const EffWidthGrid&) = delete;
    EffWidthGrid& operator=(const EffWidthGrid&) = delete;

    // Adds a closed ring as drawn, grown by the expansion and grown by twice it.
    virtual void addPoly(const LayoutPolygon& points);
    // Calculates the three maps, with the extra pieces given for each (null for none), and the
    // width and spacing of every cell.
    virtual void calculateEffWidthSpacing(const LayoutPolygonSet* pieces_drawn,
                                          const LayoutPolygonSet* pieces_once,
                                          const LayoutPolygonSet* pieces_twice);
    // The cell's effective width, or -1 outside the grid or before the calculation.
    virtual double getEffWidth(int32_t i, int32_t j) const;
    // The cell's effective spacing, or -1 outside the grid or before the calculation.
    virtual double getEffSpacing(int32_t i, int32_t j) const;
    virtual int32_t getGridSize() const;
    virtual int32_t getGridRangeX() const;
    virtual int32_t getGridRangeY() const;
    // A fully covered cell reads as a plate: width and spacing both unbounded.
    virtual void usePlateDensityRule();

    // Lower left corner of the grid's frame: cell (i, j) starts grid size * (i, j) from it.
    int32_t getGridLeft() const { return grid_left; }
    int32_t getGridBottom() const { return grid_bottom; }
    // Bytes held by the three maps and the results.
    size_t memoryBytes() const;

protected:
    std::unique_ptr<DensityMap> grown_once;
    std::unique_ptr<DensityMap> grown_twice;
    std::unique_ptr<DensityMap> drawn;
    int32_t expansion = 0;
    LayoutPolygon scratch;
    std::vector<double> eff_width;
    std::vector<double> eff_spacing;
    int32_t range_x = 0;
    int32_t range_y = 0;
    int32_t grid_size = 0;
    int32_t grid_left = 0;
    int32_t grid_bottom = 0;
    int32_t plate_rule = 0;

    // Adds the ring to the three maps that have cells.
    void addToMaps(const LayoutPolygon& points);
    // Calculates the maps and evaluates every cell of `drawn`.
    void evaluate(const LayoutPolygonSet* pieces_drawn, const LayoutPolygonSet* pieces_once,
                  const LayoutPolygonSet* pieces_twice);
};

// The same grid with no map built before the calculation: polygons are only stored, and the
// grid covers their bounding box.
class EffWidthGrid_Deferred : public EffWidthGrid {
public:
    EffWidthGrid_Deferred(int32_t grid, int32_t win, int32_t left, int32_t bottom, int32_t right,
                          int32_t top, int32_t expansion);

    // Stores the ring.
    void addPoly(const LayoutPolygon& points) override;
    // Builds the maps over the bounding box of the stored rings, replays them, evaluates the
    // cells and releases the maps and the rings; nothing is computed without rings.
    void calculateEffWidthSpacing(const LayoutPolygonSet* pieces_drawn,
                                  const LayoutPolygonSet* pieces_once,
                                  const LayoutPolygonSet* pieces_twice) override;

private:
    int32_t grid_arg;
    int32_t win_arg;
    int32_t left_arg, bottom_arg, right_arg, top_arg;
    int32_t expansion_arg;
    std::vector<LayoutPoint> points_;
    std::vector<size_t> starts_;  // where each stored ring begins in points_
    int32_t min_x_ = INT32_MAX, min_y_ = INT32_MAX, max_x_ = INT32_MIN, max_y_ = INT32_MIN;
};
