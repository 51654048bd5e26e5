#pragma once
// Plane geometry of the solver: rectangles and staircase trapezoids with classifying distances.

#include <algorithm>
#include <array>
#include <cstdint>
#include <ostream>
#include <vector>

namespace RW2D {

// Geometric zero of the whole solver.
inline constexpr double GEO_EPS = 1e-8;

struct Vector2D {
    double x = 0.0;
    double y = 0.0;
};

class Rectangle;

// Classification results of Shape::distance(p, d).
enum ShapeSide : int { SIDE_OUTSIDE = 0, SIDE_INSIDE = 1, SIDE_BOUNDARY = 2 };

class Shape {
public:
    static constexpr double SPACE_INF = 1e10;
    enum Kind : std::uint32_t { KIND_RECTANGLE = 0, KIND_TRAPEZOID = 1 };

    std::uint32_t kind = KIND_RECTANGLE;
    double box_left = 0.0, box_right = 0.0, box_top = 0.0, box_bottom = 0.0;

    virtual ~Shape() = default;
    // Writes the shape's text form.
    virtual void output(std::ostream& os) const = 0;
    // Chebyshev classification: returns 0 outside (d = distance), 1 inside (d = depth), 2 on the
    // boundary within 1e-8.
    virtual int distance(const Vector2D& p, double& d) const = 0;
    // The same classification on the Euclidean distance.
    virtual int distance_eu(const Vector2D& p, double& d) const = 0;
    // Signed Chebyshev distance (negative inside for a rectangle).
    virtual double distance(const Vector2D& p) const = 0;
    // Euclidean distance (negative depth inside for a rectangle).
    virtual double distance_eu(const Vector2D& p) const = 0;
    // Whether the shape touches r (see Rectangle::overlap for the exact test).
    virtual bool overlap(const Rectangle* r) const = 0;
    // Centre of the shape.
    virtual Vector2D center() const = 0;

    // Signed Chebyshev distance of p to the bounding box; equals distance(p) for a rectangle.
    double box_distance(const Vector2D& p) const noexcept {
        return std::max(std::max(p.y - box_top, p.x - box_right),
                        std::max(box_bottom - p.y, box_left - p.x));
    }
};

class Rectangle : public Shape {
public:
    double left = 0.0, right = 0.0, top = 0.0, bottom = 0.0;

    Rectangle() { set(0.0, 0.0, 0.0, 0.0); }
    // Sides in field order: left, right, top, bottom.
    Rectangle(double l, double r, double t, double b) { set(l, r, t, b); }
    // Builds from {x_min, y_min, x_max, y_max}.
    static Rectangle from_array(const std::array<double, 4>& a) {
        return Rectangle(a[0], a[2], a[3], a[1]);
    }

    // Sets all four sides and the bounding box.
    void set(double l, double r, double t, double b) noexcept {
        kind = KIND_RECTANGLE;
        left = box_left = l;
        right = box_right = r;
        top = box_top = t;
        bottom = box_bottom = b;
    }
    double width() const noexcept { return right - left; }
    double height() const noexcept { return top - bottom; }

    // Signed Chebyshev distance, non-virtual: what the hot path uses.
    double chebyshev(const Vector2D& p) const noexcept {
        return std::max(std::max(p.y - top, p.x - right), std::max(bottom - p.y, left - p.x));
    }

    void output(std::ostream& os) const override;
    int distance(const Vector2D& p, double& d) const override;
    int distance_eu(const Vector2D& p, double& d) const override;
    double distance(const Vector2D& p) const override { return chebyshev(p); }
    double distance_eu(const Vector2D& p) const override;
    bool overlap(const Rectangle* r) const override;
    Vector2D center() const override { return {(left + right) / 2, (top + bottom) / 2}; }
};

// Staircase approximation of a trapezoid: a stack of owned rectangular slices.
class Trapezoid : public Shape {
public:
    bool center_known = false;
    std::vector<Rectangle*> slices;

    Trapezoid() { kind = KIND_TRAPEZOID; }
    Trapezoid(const Trapezoid& o);
    Trapezoid& operator=(const Trapezoid& o);
    ~Trapezoid() override;

    // Takes ownership of the slice and grows the bounding box over it; the centre becomes known.
    void add_slice(Rectangle* slice);

    void output(std::ostream& os) const override;
    // Raises "trapezoid empty" without slices.
    int distance(const Vector2D& p, double& d) const override;
    // Raises "not implemented".
    int distance_eu(const Vector2D& p, double& d) const override;
    // Smallest slice distance, 0.0 as soon as p touches or enters a slice (never negative).
    double distance(const Vector2D& p) const override;
    // Raises "not implemented".
    double distance_eu(const Vector2D& p) const override;
    bool overlap(const Rectangle* r) const override;
    // Bounding-box centre when known, else (1e10, 1e10).
    Vector2D center() const override;
};

}  // namespace RW2D
