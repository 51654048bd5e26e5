// Thickness change of a wire from the metal density around it, from density and width, and from a
// polynomial in density and width.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "technology/density_source.h"
#include "technology/process_model.h"

using DensityBox = std::pair<double, double>;         // box size in file units, weight
using ScaledDensityBox = std::pair<int32_t, double>;  // box size in layout units, weight

// Weighted sum of the window densities at (x, y) over the boxes.
double weightedDensity(const std::vector<ScaledDensityBox>& boxes, int32_t x, int32_t y,
                       const DensitySource& map);
// Box sizes divided by dbu and rounded to the nearest integer; empty when dbu is not above 0.
std::vector<ScaledDensityBox> scaleBoxes(const std::vector<DensityBox>& boxes, double dbu);

// Relative thickness change over density, from `thickness_var_from_d`.
class ThicknessDensityModel {
public:
    std::vector<std::pair<double, double>> table;  // (density, relative change), ascending
    std::vector<DensityBox> boxes;
    std::vector<ScaledDensityBox> scaled_boxes;
    double grid = 10.0;  // kept with the table; no evaluation reads it

    virtual ~ThicknessDensityModel() = default;
    // Back to the empty state.
    virtual void reset();
    // A copy; the caller owns it.
    virtual ThicknessDensityModel* clone() const;

    // Factor on the nominal thickness at density d, held at the table's ends; 1 on an empty table.
    double getThicknessByDensity(double d) const;
    // Factor at (x, y) from the weighted window densities of the map.
    double getThickness(int32_t x, int32_t y, const DensitySource& map) const;
    // Copies the table; adds the box (50, 1) when no box is set.
    void setDensityTable(const std::vector<std::pair<double, double>>& t);
    // Rebuilds scaled_boxes for a layout unit of dbu.
    void setDBU(double dbu);
};

// Thickness change over density (first axis) and width (second axis).
class ThicknessDensityWidthModel {
public:
    EtchModel table;  // widths = densities, spacings = widths
    std::vector<DensityBox> boxes;
    std::vector<ScaledDensityBox> scaled_boxes;

    virtual ~ThicknessDensityWidthModel() = default;
    // Back to the empty state.
    virtual void reset();
    // A copy; the caller owns it.
    virtual ThicknessDensityWidthModel* clone() const;

    // Table value at the weighted density at (x, y) and the given width; 0 when the table fails.
    double getThickness(double width, int32_t x, int32_t y, const DensitySource& map) const;
    // Rebuilds scaled_boxes for a layout unit of dbu.
    void setDBU(double dbu);
};

// Thickness change as a polynomial in density and width, one coefficient table per width range.
class ThicknessPolynomialModel {
public:
    int32_t si_density = 0;
    int32_t si_width = 0;
    std::vector<int32_t> density_orders;
    std::vector<int32_t> width_orders;
    std::vector<double> width_ranges;               // break points between coefficient tables
    std::vector<std::vector<double>> coefficients;  // [range][i * width_orders.size() + j]
    std::vector<double> bound_widths;               // ascending
    std::vector<std::pair<double, double>> bound_densities;  // (low, high) per bound width
    double upper_bound = -1.0;
    double lower_bound = -1.0;
    int32_t has_thickness_bounds = 0;
    double spacing_high = -1.0;
    double spacing_low = -1.0;
    int32_t has_spacing_range = 0;
    double width_low = -1.0;
    double width_high = -1.0;
    int32_t has_width_range = 0;
    int32_t select_by_raw_width = 0;  // pick the coefficient table by the unclamped width
    int32_t select_reserved = 0;      // kept with the model; no evaluation reads it
    std::vector<DensityBox> boxes;
    std::vector<ScaledDensityBox> scaled_boxes;
    double max_change = 0.4;

    virtual ~ThicknessPolynomialModel() = default;
    // Back to the defaults.
    virtual void reset();
    // A copy; the caller owns it.
    virtual ThicknessPolynomialModel* clone() const;

    // Relative thickness change at (density, width) into out; returns 1, or 0 when no coefficient
    // table covers the width or it is shorter than the orders ask.
    int getThickness(double density, double width, double& out, double nominal) const;
    // Density range allowed at width w, linear between the bound rows and held at the ends;
    // (0, 1) without rows.
    std::pair<double, double> getDensityBounds(double w) const;
    // Sets the width range that clamps the width.
    void setWidthRange(double low, double high);
    // Sets the spacing range that bounds the density.
    void setSpacingRange(double low, double high);
    // Sets the absolute thickness bounds.
    void setThicknessBounds(double lower, double upper);
    // 1 and the bounds when they are set, else 0.
    int getThicknessBounds(double& lower, double& upper) const;
    // Rebuilds scaled_boxes for a layout unit of dbu, adding the box (50, 1) when none is set.
    void setDBU(double dbu);
};
