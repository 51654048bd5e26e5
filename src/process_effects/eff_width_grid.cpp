#include "process_effects/eff_width_grid.h"

#include <algorithm>
#include <cmath>

namespace {

int32_t roundToGrid(double v) {
    const double r = std::nearbyint(v);
    return static_cast<int32_t>(std::clamp(r, double{INT32_MIN}, double{INT32_MAX}));
}

int32_t doubled(int32_t v) {
    return static_cast<int32_t>(std::min<int64_t>(2 * int64_t{v}, INT32_MAX));
}

}  // namespace

void expandPiece(const LayoutPolygon& points, LayoutPolygon& out, int32_t distance) {
    out.clear();
    if (points.size() < 4) return;
    LayoutPolygon ring;
    ring.reserve(points.size());
    for (const LayoutPoint& p : points)
        if (ring.empty() || !(ring.back() == p)) ring.push_back(p);
    while (ring.size() > 1 && ring.back() == ring.front()) ring.pop_back();
    const size_t n = ring.size();
    if (n < 3) return;

    double area2 = 0.0;
    for (size_t i = 0, j = n - 1; i < n; j = i++)
        area2 +=
            static_cast<double>(ring[j].x) * ring[i].y - static_cast<double>(ring[i].x) * ring[j].y;
    const double outward = area2 < 0 ? -1.0 : 1.0;  // right-hand normals point out of a CCW ring
    const double d = distance;

    auto normal = [&](const LayoutPoint& a, const LayoutPoint& b) {
        const double ex = static_cast<double>(b.x) - a.x, ey = static_cast<double>(b.y) - a.y;
        const double len = std::hypot(ex, ey);
        return std::pair<double, double>(outward * ey / len, -outward * ex / len);
    };
    out.reserve(n + 1);
    for (size_t k = 0; k < n; ++k) {
        const LayoutPoint& p = ring[(k + n - 1) % n];
        const LayoutPoint& v = ring[k];
        const LayoutPoint& q = ring[(k + 1) % n];
        const auto [n1x, n1y] = normal(p, v);
        const auto [n2x, n2y] = normal(v, q);
        const double denom = 1.0 + n1x * n2x + n1y * n2y;
        double mx, my;
        if (denom >= 0.125) {  // mitre length d * sqrt(2 / denom), at most 4 d
            mx = d * (n1x + n2x) / denom;
            my = d * (n1y + n2y) / denom;
        } else {
            double sx = n1x + n2x, sy = n1y + n2y;
            double len = std::hypot(sx, sy);
            if (len < 1e-12) {  // straight back: push the tip ahead along the incoming edge
                sx = static_cast<double>(v.x) - p.x, sy = static_cast<double>(v.y) - p.y;
                len = std::hypot(sx, sy);
            }
            mx = 4.0 * d * sx / len;
            my = 4.0 * d * sy / len;
        }
        out.push_back({roundToGrid(v.x + mx), roundToGrid(v.y + my)});
    }
    out.push_back(out.front());
}

// ---------------------------------------------------------------------------------------------
// EffWidthGrid

EffWidthGrid::EffWidthGrid(int32_t grid, int32_t win, int32_t left, int32_t bottom, int32_t right,
                           int32_t top, int32_t expansion_in)
    : expansion(std::max(expansion_in, 0)), grid_left(left), grid_bottom(bottom) {
    const int32_t extend = doubled(expansion);
    grown_once = std::make_unique<DensityMap>(grid, win, left, bottom, right, top, extend);
    grown_twice = std::make_unique<DensityMap>(grid, win, left, bottom, right, top, extend);
    drawn = std::make_unique<DensityMap>(grid, win, left, bottom, right, top, extend);
    range_x = drawn->range_x;
    range_y = drawn->range_y;
    grid_size = drawn->grid_size;
}

EffWidthGrid::~EffWidthGrid() = default;

void EffWidthGrid::addToMaps(const LayoutPolygon& points) {
    if (grown_once && grown_once->grid_size != 0) {
        expandPiece(points, scratch, expansion);
        if (!scratch.empty()) grown_once->addOverlappedPoly(scratch);
    }
    if (grown_twice && grown_twice->grid_size != 0) {
        expandPiece(points, scratch, doubled(expansion));
        if (!scratch.empty()) grown_twice->addOverlappedPoly(scratch);
    }
    if (drawn && drawn->grid_size != 0) drawn->addOverlappedPoly(points);
}

void EffWidthGrid::addPoly(const LayoutPolygon& points) {
    addToMaps(points);
}

void EffWidthGrid::calculateEffWidthSpacing(const LayoutPolygonSet* pieces_drawn,
                                            const LayoutPolygonSet* pieces_once,
                                            const LayoutPolygonSet* pieces_twice) {
    evaluate(pieces_drawn, pieces_once, pieces_twice);
}

void EffWidthGrid::evaluate(const LayoutPolygonSet* pieces_drawn,
                            const LayoutPolygonSet* pieces_once,
                            const LayoutPolygonSet* pieces_twice) {
    auto calculate = [](DensityMap& map, const LayoutPolygonSet* pieces) {
        if (map.grid_size == 0) return;
        if (pieces)
            map.calculateDensity(*pieces);
        else
            map.calculateDensity();
    };
    calculate(*drawn, pieces_drawn);
    calculate(*grown_once, pieces_once);
    calculate(*grown_twice, pieces_twice);

    range_x = drawn->range_x;
    range_y = drawn->range_y;
    grid_size = drawn->grid_size;
    const size_t cells = drawn->densities.size();
    eff_width.assign(cells, 0.0);
    eff_spacing.assign(cells, 0.0);
    const double e = expansion;
    for (int32_t j = 0; j < range_y; ++j)
        for (int32_t i = 0; i < range_x; ++i) {
            const double d0 = drawn->getGridDensity(i, j);
            const double d1 = grown_once->getGridDensity(i, j);
            const double d2 = grown_twice->getGridDensity(i, j);
            double& width = eff_width[static_cast<size_t>(j) * range_x + i];
            double& spacing = eff_spacing[static_cast<size_t>(j) * range_x + i];
            auto result = [&](double w, double s) { width = w, spacing = s; };

            if (plate_rule) {
                if (std::abs(d0 - 1.0) < 0.01) {
                    result(kUnbounded, kUnbounded);
                    continue;
                }
            } else if (std::abs(d0 - 1.0) < 0.0001) {
                result(kUnbounded, 0.0);
                continue;
            }
            if ((d1 != -1.0 && std::abs(d1 - 1.0) < 0.0001) ||
                (d2 != -1.0 && std::abs(d2 - 1.0) < 0.0001)) {
                result(kUnbounded, 0.0);
                continue;
            }
            if (std::abs(d0) < 1e-8) {
                result(0.0, kUnbounded);
                continue;
            }
            // y(x) = a x^2 + b x + d2 through (0, d2), (1, d1), (2, d0); x counts growth steps
            // taken back from the twice-grown layer, and its root is where the layer vanishes.
            const double a = (d0 + d2 - 2.0 * d1) / 2.0;
            const double b = d1 - d2 - a;
            double x;
            if (std::abs(a * d2) > 0.0001 * b * b)
                x = (-b - std::sqrt(std::max(b * b - 4.0 * a * d2, 0.0))) / (2.0 * a);
            else
                x = b != 0.0 ? -d2 / b : 0.0;
            const double w = x < 2.0 ? 0.0 : 2.0 * (x - 2.0) * e;
            if (std::abs(w) < 0.0001) {
                if (d0 > 0.5)
                    result(kUnbounded, kUnbounded);
                else
                    result(0.0, 0.0);
                continue;
            }
            result(w, (1.0 - d0) * w / d0);
        }
}

double EffWidthGrid::getEffWidth(int32_t i, int32_t j) const {
    const size_t k = static_cast<size_t>(j) * range_x + i;
    if (i < 0 || j < 0 || i >= range_x || j >= range_y || k >= eff_width.size()) return -1.0;
    return eff_width[k];
}

double EffWidthGrid::getEffSpacing(int32_t i, int32_t j) const {
    const size_t k = static_cast<size_t>(j) * range_x + i;
    if (i < 0 || j < 0 || i >= range_x || j >= range_y || k >= eff_spacing.size()) return -1.0;
    return eff_spacing[k];
}

int32_t EffWidthGrid::getGridSize() const {
    return grid_size;
}

int32_t EffWidthGrid::getGridRangeX() const {
    return range_x;
}

int32_t EffWidthGrid::getGridRangeY() const {
    return range_y;
}

void EffWidthGrid::usePlateDensityRule() {
    plate_rule = 1;
}

size_t EffWidthGrid::memoryBytes() const {
    size_t bytes = (eff_width.capacity() + eff_spacing.capacity()) * sizeof(double);
    for (const auto* m : {drawn.get(), grown_once.get(), grown_twice.get()})
        if (m) bytes += m->memoryBytes();
    return bytes;
}

// ---------------------------------------------------------------------------------------------
// EffWidthGrid_Deferred

EffWidthGrid_Deferred::EffWidthGrid_Deferred(int32_t grid, int32_t win, int32_t left,
                                             int32_t bottom, int32_t right, int32_t top,
                                             int32_t expansion_in)
    : EffWidthGrid(0, win, left, bottom, right, top, expansion_in),  // maps without cells
      grid_arg(grid),
      win_arg(win),
      left_arg(left),
      bottom_arg(bottom),
      right_arg(right),
      top_arg(top),
      expansion_arg(expansion_in) {
    grown_once.reset();
    grown_twice.reset();
    drawn.reset();
}

void EffWidthGrid_Deferred::addPoly(const LayoutPolygon& points) {
    if (points.empty()) return;
    starts_.push_back(points_.size());
    points_.insert(points_.end(), points.begin(), points.end());
    for (const LayoutPoint& p : points) {
        min_x_ = std::min(min_x_, p.x), max_x_ = std::max(max_x_, p.x);
        min_y_ = std::min(min_y_, p.y), max_y_ = std::max(max_y_, p.y);
    }
}

void EffWidthGrid_Deferred::calculateEffWidthSpacing(const LayoutPolygonSet* pieces_drawn,
                                                     const LayoutPolygonSet* pieces_once,
                                                     const LayoutPolygonSet* pieces_twice) {
    if (starts_.empty()) return;
    const int32_t extend = doubled(expansion);
    grown_once =
        std::make_unique<DensityMap>(grid_arg, win_arg, min_x_, min_y_, max_x_, max_y_, extend);
    grown_twice =
        std::make_unique<DensityMap>(grid_arg, win_arg, min_x_, min_y_, max_x_, max_y_, extend);
    drawn = std::make_unique<DensityMap>(grid_arg, win_arg, min_x_, min_y_, max_x_, max_y_, extend);
    for (size_t k = 0; k < starts_.size(); ++k) {
        const size_t end = k + 1 < starts_.size() ? starts_[k + 1] : points_.size();
        const LayoutPolygon ring(points_.begin() + starts_[k], points_.begin() + end);
        addToMaps(ring);
    }
    evaluate(pieces_drawn, pieces_once, pieces_twice);
    grid_left = min_x_;
    grid_bottom = min_y_;
    grown_once.reset();
    grown_twice.reset();
    drawn.reset();
}
