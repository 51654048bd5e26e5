// Metal density of a layer on a regular grid over a layout frame, measured in a window around
// each cell, for the thickness models.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "process_effects/clip_box.h"
#include "process_effects/layout_polygon.h"
#include "technology/density_source.h"

namespace process_effects {
class PolygonStore;
}

class DensityMap : public DensitySource {
public:
    std::vector<double> densities;  // densities[j * range_x + i]
    int32_t grid_size = 0;          // cell step; 0 for a map that holds no cells
    int32_t win_size = 0;           // measuring window of a cell
    int32_t range_x = 0;
    int32_t range_y = 0;
    double grid_area = 0.0;
    int32_t frame_left = 0;
    int32_t frame_bottom = 0;
    int32_t frame_right = 0;
    int32_t frame_top = 0;

    // A map with no cells: getDensity answers 0 and calculateDensity does nothing.
    DensityMap();
    // Cells of about `grid` over the frame (right and top inclusive), each measured in a window of
    // `win` centred on it that may reach `extend` beyond the frame. A grid not above 0 or an empty
    // frame gives a map with no cells.
    DensityMap(int32_t grid, int32_t win, int32_t left, int32_t bottom, int32_t right, int32_t top,
               int32_t extend = 0);
    ~DensityMap() override;
    DensityMap(DensityMap&&) noexcept;
    DensityMap& operator=(DensityMap&&) noexcept;

    // Adds a closed ring to the cells whose windows it reaches (coverage rule of
    // layout_polygon.h); does nothing for a map with no cells.
    void addOverlappedPoly(const LayoutPolygon& points);
    // Adds one polygon given as an outer ring and its holes.
    void addOverlappedPolyWithHoles(const LayoutPolygonSet& rings);
    // Turns the polygons added since the last call into densities: each cell becomes (its value
    // + covered area of its window) / window area. The polygons are released.
    void calculateDensity();
    // The same with extra pieces counted with the polygons; does nothing without cells.
    void calculateDensity(const LayoutPolygonSet& pieces);
    // The cell's value, or -1 outside the grid.
    double getGridDensity(int32_t i, int32_t j) const;
    // Density in the window of side `box` centred on (x, y), shrunk to the frame: the cell values
    // weighted by the overlap of the window with each cell's window. Windows wider than a cell
    // overlap and their overlap counts once per window, so the answer can exceed 1. 0 without
    // cells or when the window misses the frame.
    double getDensity(int32_t x, int32_t y, int32_t box) const override;
    // Zeroes all cells.
    void clearDensity();
    // The window of cell (i, j), holding no polygons; an empty box outside the grid.
    ClipBox getClipBox(int32_t i, int32_t j) const;

    // Writes the map as text; 1, or 0 when the file cannot be written.
    int saveToFile(const std::string& path) const;
    // Reads a file written by saveToFile; 1, or 0 when it will not open or is incomplete or
    // malformed, leaving the map as it was. The file does not carry `extend`: the loaded windows
    // stop at the frame.
    int loadFromFile(const std::string& path);

    // Polygons added and not yet calculated.
    size_t pendingPolygons() const;
    // Bytes held by the cells, the windows and the pending polygons.
    size_t memoryBytes() const;

private:
    struct Span {
        int64_t low;
        int64_t high;
    };
    std::vector<Span> x_spans_;  // window of column i
    std::vector<Span> y_spans_;  // window of row j
    std::unique_ptr<process_effects::PolygonStore> pending_;

    void buildWindows(int32_t extend);
    // The frame's extent with the widest windows, or false for a map with no cells.
    bool reach(int64_t& x_low, int64_t& x_high, int64_t& y_low, int64_t& y_high) const;
    // The bounding box {x low, x high, y low, y high} strictly overlaps some window.
    bool reaches(const std::array<int64_t, 4>& box) const;
};
