#include "technology/process_model_thickness.h"

#include <algorithm>
#include <cmath>

namespace {

const DensityBox kDefaultBox{50.0, 1.0};

// x held inside the range spanned by a and b, whichever is larger.
double clampBetween(double x, double a, double b) {
    return std::clamp(x, std::min(a, b), std::max(a, b));
}

}  // namespace

double weightedDensity(const std::vector<ScaledDensityBox>& boxes, int32_t x, int32_t y,
                       const DensitySource& map) {
    double d = 0.0;
    for (const auto& [size, weight] : boxes) d += weight * map.getDensity(x, y, size);
    return d;
}

std::vector<ScaledDensityBox> scaleBoxes(const std::vector<DensityBox>& boxes, double dbu) {
    std::vector<ScaledDensityBox> scaled;
    if (!(dbu > 0.0)) return scaled;
    scaled.reserve(boxes.size());
    for (const auto& [size, weight] : boxes)
        scaled.emplace_back(static_cast<int32_t>(std::llround(size / dbu)), weight);
    return scaled;
}

// ---------------------------------------------------------------------------------------------
// ThicknessDensityModel

void ThicknessDensityModel::reset() {
    *this = ThicknessDensityModel();
}

ThicknessDensityModel* ThicknessDensityModel::clone() const {
    return new ThicknessDensityModel(*this);
}

double ThicknessDensityModel::getThicknessByDensity(double d) const {
    if (table.empty()) return 1.0;
    if (d < table.front().first) return 1.0 + table.front().second;
    if (d >= table.back().first) return 1.0 + table.back().second;
    size_t k = 0;
    while (k + 1 < table.size() && table[k + 1].first <= d) ++k;
    const auto& [d0, c0] = table[k];
    const auto& [d1, c1] = table[k + 1];
    return 1.0 + c0 + (d - d0) / (d1 - d0) * (c1 - c0);
}

double ThicknessDensityModel::getThickness(int32_t x, int32_t y, const DensitySource& map) const {
    return getThicknessByDensity(weightedDensity(scaled_boxes, x, y, map));
}

void ThicknessDensityModel::setDensityTable(const std::vector<std::pair<double, double>>& t) {
    table = t;
    if (boxes.empty()) boxes.push_back(kDefaultBox);
}

void ThicknessDensityModel::setDBU(double dbu) {
    scaled_boxes = scaleBoxes(boxes, dbu);
}

// ---------------------------------------------------------------------------------------------
// ThicknessDensityWidthModel

void ThicknessDensityWidthModel::reset() {
    *this = ThicknessDensityWidthModel();
}

ThicknessDensityWidthModel* ThicknessDensityWidthModel::clone() const {
    return new ThicknessDensityWidthModel(*this);
}

double ThicknessDensityWidthModel::getThickness(double width, int32_t x, int32_t y,
                                                const DensitySource& map) const {
    double out = 0.0;
    if (!table.evalEtch(weightedDensity(scaled_boxes, x, y, map), width, out)) return 0.0;
    return out;
}

void ThicknessDensityWidthModel::setDBU(double dbu) {
    scaled_boxes = scaleBoxes(boxes, dbu);
}

// ---------------------------------------------------------------------------------------------
// ThicknessPolynomialModel

void ThicknessPolynomialModel::reset() {
    *this = ThicknessPolynomialModel();
}

ThicknessPolynomialModel* ThicknessPolynomialModel::clone() const {
    return new ThicknessPolynomialModel(*this);
}

void ThicknessPolynomialModel::setWidthRange(double low, double high) {
    width_low = low;
    width_high = high;
    has_width_range = 1;
}

void ThicknessPolynomialModel::setSpacingRange(double low, double high) {
    spacing_low = low;
    spacing_high = high;
    has_spacing_range = 1;
}

void ThicknessPolynomialModel::setThicknessBounds(double lower, double upper) {
    lower_bound = lower;
    upper_bound = upper;
    has_thickness_bounds = 1;
}

int ThicknessPolynomialModel::getThicknessBounds(double& lower, double& upper) const {
    if (!has_thickness_bounds) return 0;
    lower = lower_bound;
    upper = upper_bound;
    return 1;
}

void ThicknessPolynomialModel::setDBU(double dbu) {
    if (boxes.empty()) boxes.push_back(kDefaultBox);
    scaled_boxes = scaleBoxes(boxes, dbu);
}

std::pair<double, double> ThicknessPolynomialModel::getDensityBounds(double w) const {
    const size_t n = std::min(bound_widths.size(), bound_densities.size());
    if (n == 0) return {0.0, 1.0};
    if (w <= bound_widths[0]) return bound_densities[0];
    if (w >= bound_widths[n - 1]) return bound_densities[n - 1];
    size_t k = 0;
    while (k + 2 < n && bound_widths[k + 1] <= w) ++k;
    const double w0 = bound_widths[k], w1 = bound_widths[k + 1];
    if (w1 - w0 < 1e-12) return bound_densities[k];
    const double t = (w - w0) / (w1 - w0);
    const auto& [lo0, hi0] = bound_densities[k];
    const auto& [lo1, hi1] = bound_densities[k + 1];
    return {lo0 + t * (lo1 - lo0), hi0 + t * (hi1 - hi0)};
}

int ThicknessPolynomialModel::getThickness(double density, double width, double& out,
                                           double nominal) const {
    const double w = has_width_range ? std::clamp(width, std::min(width_low, width_high),
                                                  std::max(width_low, width_high))
                                     : width;
    double d = density;
    if (has_width_range && bound_widths.empty() && has_spacing_range) {
        d = clampBetween(d, width_low / (width_low + spacing_low),
                         width_high / (width_high + spacing_high));
    } else if (!bound_widths.empty()) {
        const auto [lo, hi] = getDensityBounds(w);
        d = clampBetween(d, lo, hi);
    } else if (has_spacing_range && w > 0.0001) {
        d = clampBetween(d, w / (w + spacing_low), w / (w + spacing_high));
    }

    const double pick = select_by_raw_width ? width : w;
    size_t k = 0;
    while (k < width_ranges.size() && width_ranges[k] < pick) ++k;
    if (k >= coefficients.size()) return 0;
    const std::vector<double>& c = coefficients[k];
    const size_t nw = width_orders.size();
    if (c.size() < density_orders.size() * nw) return 0;

    double result = 0.0;
    for (size_t i = 0; i < density_orders.size(); ++i) {
        double row = 0.0;
        for (size_t j = 0; j < nw; ++j) row += c[i * nw + j] * std::pow(w, width_orders[j]);
        result += std::pow(d, density_orders[i]) * row;
    }

    if (nominal > 0.0 && has_thickness_bounds) {
        const double t = std::clamp((result + 1.0) * nominal, std::min(lower_bound, upper_bound),
                                    std::max(lower_bound, upper_bound));
        out = t / nominal - 1.0;
    } else {
        out = std::clamp(result, -std::fabs(max_change), std::fabs(max_change));
    }
    return 1;
}
