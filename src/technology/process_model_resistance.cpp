#include "technology/process_model_resistance.h"

#include <algorithm>
#include <cmath>

#include "technology/process_model.h"

namespace {

constexpr double kTiny = 1e-9;

// Reciprocal interpolation of f along axis at x, held at the axis ends. f(k) is the resistance at
// axis[k]. The axis must not be empty.
template <typename F>
double reciprocalAlong(const std::vector<double>& axis, F f, double x, int inverse_axis) {
    x = std::clamp(x, axis.front(), std::max(axis.front(), axis.back()));
    int lo, hi;
    EtchModel::searchGrid(axis, x, lo, hi);
    if (lo == hi) return f(lo);
    return reciprocalInterpolation(axis[lo], axis[hi], f(lo), f(hi), x, inverse_axis);
}

// Clamps x into the axis and returns the factor end / x by which a value taken at the end is
// scaled; 1 inside the axis or for x not above 0.
double clampAndScale(const std::vector<double>& axis, double& x) {
    double scale = 1.0;
    if (x > axis.back()) {
        if (x > 0.0) scale = axis.back() / x;
        x = axis.back();
    } else if (x < axis.front()) {
        if (x > 0.0) scale = axis.front() / x;
        x = axis.front();
    }
    return scale;
}

// Weight of x between axis[lo] and axis[hi]; 0 for a single point or a degenerate span.
double weightIn(const std::vector<double>& axis, int lo, int hi, double x) {
    if (lo == hi) return 0.0;
    const double span = axis[hi] - axis[lo];
    if (std::fabs(span) < 1e-12) return 0.0;
    return (x - axis[lo]) / span;
}

}  // namespace

double reciprocalInterpolation(double a, double b, double ra, double rb, double x,
                               int inverse_axis) {
    if (a < kTiny || b < kTiny || ra < kTiny || rb < kTiny) return -1.0;
    double pa = a, pb = b, px = x;
    if (inverse_axis) {
        pa = 1.0 / a;
        pb = 1.0 / b;
        px = 1.0 / x;
    }
    const double span = pb - pa;
    if (!(std::fabs(span) > kTiny)) return -1.0;
    const double t = (px - pa) / span;
    const double g = 1.0 / ra - t * (1.0 / ra - 1.0 / rb);
    if (!(g > kTiny)) return -1.0;
    return 1.0 / g;
}

// ---------------------------------------------------------------------------------------------
// RPSQWidthSpacingModel

void RPSQWidthSpacingModel::reset() {
    *this = RPSQWidthSpacingModel();
}

RPSQWidthSpacingModel* RPSQWidthSpacingModel::clone() const {
    return new RPSQWidthSpacingModel(*this);
}

double RPSQWidthSpacingModel::getRPSQ(double w, double s) const {
    const bool has_w = !widths.empty();
    const bool has_s = !spacings.empty();
    if (has_w && !has_s) {
        if (values.size() != widths.size()) return -1.0;
        return reciprocalAlong(
            widths, [this](int k) { return values[k]; }, w, 1);
    }
    if (has_s && !has_w) {
        if (values.size() != spacings.size()) return -1.0;
        return reciprocalAlong(
            spacings, [this](int k) { return values[k]; }, s, 0);
    }
    if (!has_w || values.size() != widths.size() * spacings.size()) return -1.0;
    const size_t ns = spacings.size();
    // Along spacing on each width row first, then along width between the two rows.
    auto row = [&](int i) {
        return reciprocalAlong(
            spacings, [&](int j) { return values[i * ns + j]; }, s, 0);
    };
    double wc = std::clamp(w, widths.front(), std::max(widths.front(), widths.back()));
    int lo, hi;
    EtchModel::searchGrid(widths, wc, lo, hi);
    const double r_lo = row(lo);
    if (r_lo < 0.0) return -1.0;
    if (lo == hi) return r_lo;
    const double r_hi = row(hi);
    if (r_hi < 0.0) return -1.0;
    return reciprocalInterpolation(widths[lo], widths[hi], r_lo, r_hi, wc, 1);
}

// ---------------------------------------------------------------------------------------------
// RPSQSIWidthModel

void RPSQSIWidthModel::reset() {
    *this = RPSQSIWidthModel();
}

RPSQSIWidthModel* RPSQSIWidthModel::clone() const {
    return new RPSQSIWidthModel(*this);
}

double RPSQSIWidthModel::getRPSQ(double w) const {
    if (widths.empty() || values.size() != widths.size()) return -1.0;
    w = std::clamp(w, widths.front(), std::max(widths.front(), widths.back()));
    int lo, hi;
    EtchModel::searchGrid(widths, w, lo, hi);
    if (lo == hi) return values[lo];
    const double span = widths[hi] - widths[lo];
    if (span < kTiny) return -1.0;
    return values[lo] + (w - widths[lo]) / span * (values[hi] - values[lo]);
}

// ---------------------------------------------------------------------------------------------
// PRVWidthLength

void PRVWidthLength::reset() {
    *this = PRVWidthLength();
}

PRVWidthLength* PRVWidthLength::clone() const {
    return new PRVWidthLength(*this);
}

double PRVWidthLength::getRPV(double w, double l) const {
    if (widths.empty() || lengths.empty() || values.size() != widths.size() * lengths.size())
        return -1.0;
    const double scale = clampAndScale(widths, w) * clampAndScale(lengths, l);
    int w0, w1, l0, l1;
    EtchModel::searchGrid(widths, w, w0, w1);
    EtchModel::searchGrid(lengths, l, l0, l1);
    const double tw = weightIn(widths, w0, w1, w);
    const double tl = weightIn(lengths, l0, l1, l);
    const size_t nl = lengths.size();
    auto v = [&](int i, int j) { return values[i * nl + j]; };
    const double at_l0 = v(w0, l0) + tw * (v(w1, l0) - v(w0, l0));
    const double at_l1 = v(w0, l1) + tw * (v(w1, l1) - v(w0, l1));
    return (at_l0 + tl * (at_l1 - at_l0)) * scale;
}

// ---------------------------------------------------------------------------------------------
// ViaRPVAreaModel

void ViaRPVAreaModel::reset() {
    *this = ViaRPVAreaModel();
}

ViaRPVAreaModel* ViaRPVAreaModel::clone() const {
    return new ViaRPVAreaModel(*this);
}

double ViaRPVAreaModel::getResist(double area) const {
    if (pairs.empty()) return 0.0;
    const auto& [a_first, r_first] = pairs.front();
    const auto& [a_last, r_last] = pairs.back();
    if (area < a_first) return by_area || !(area > 0.0) ? r_first : r_first * a_first / area;
    if (area > a_last) return by_area ? r_last : r_last * a_last / area;
    if (area == a_last) return r_last;
    size_t k = 0;
    while (k + 2 < pairs.size() && pairs[k + 1].first <= area) ++k;
    const auto& [x0, r0] = pairs[k];
    const auto& [x1, r1] = pairs[k + 1];
    if (x1 - x0 < 1e-12) return r0;
    return 1.0 / (((x1 - area) / r0 + (area - x0) / r1) / (x1 - x0));
}
