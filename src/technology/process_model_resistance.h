// Resistance tables of wires and vias. Lookups hold the input at the table's ends (or scale it
// where a table says so) and report failure by -1 or 0.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

// Interpolates between resistances ra at a and rb at b on conductance, at x; on the axis 1/a, 1/b,
// 1/x when inverse_axis is set. Returns -1 when a value is not above 1e-9, the axis span is not
// above 1e-9, or the interpolated conductance is not above 1e-9.
double reciprocalInterpolation(double a, double b, double ra, double rb, double x,
                               int inverse_axis);

// Sheet resistance over width and/or spacing (values[i * spacings.size() + j], i the width index).
class RPSQWidthSpacingModel {
public:
    std::vector<double> widths;
    std::vector<double> spacings;
    std::vector<double> values;

    virtual ~RPSQWidthSpacingModel() = default;
    // Back to the empty state.
    virtual void reset();
    // A copy; the caller owns it.
    virtual RPSQWidthSpacingModel* clone() const;

    // Sheet resistance at (w, s), reciprocal interpolation (on 1/w along width); -1 on an empty
    // or malformed table or a failed interpolation.
    double getRPSQ(double w, double s) const;
};

// Sheet resistance over silicon width.
class RPSQSIWidthModel {
public:
    std::vector<double> widths;
    std::vector<double> values;

    virtual ~RPSQSIWidthModel() = default;
    // Back to the empty state.
    virtual void reset();
    // A copy; the caller owns it.
    virtual RPSQSIWidthModel* clone() const;

    // Linear in width, held at the ends; -1 on an empty table or an axis span below 1e-9.
    double getRPSQ(double w) const;
};

// Resistance per via over width and length (values[i * lengths.size() + j], i the width index).
class PRVWidthLength {
public:
    std::vector<double> widths;
    std::vector<double> lengths;
    std::vector<double> values;

    virtual ~PRVWidthLength() = default;
    // Back to the empty state.
    virtual void reset();
    // A copy; the caller owns it.
    virtual PRVWidthLength* clone() const;

    // Bilinear inside the table; beyond an axis the end value is scaled by end / value, so that
    // resistance follows area. -1 on an empty or malformed table.
    double getRPV(double w, double l) const;
};

// Resistance per via over via area, rows sorted by area.
class ViaRPVAreaModel {
public:
    std::vector<std::pair<double, double>> pairs;  // (area, rpv), ascending area
    int32_t by_area = 1;  // 1: held at the ends; 0: the end value scaled by end area / area

    virtual ~ViaRPVAreaModel() = default;
    // Back to the defaults.
    virtual void reset();
    // A copy; the caller owns it.
    virtual ViaRPVAreaModel* clone() const;

    // Resistance at area, linear on conductance between rows; 0 on an empty table.
    double getResist(double area) const;
};
