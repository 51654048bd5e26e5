#include "process_effects/polygon_store.h"

#include <algorithm>
#include <clipper.hpp>

namespace process_effects {

namespace CL = ClipperLib;

struct AreaWorkspace {
    CL::Clipper clipper;
    CL::Paths subject;
    CL::Paths solution;
    std::vector<Box64> rects;
    std::vector<int64_t> xs;
};

void AreaWorkspaceDeleter::operator()(AreaWorkspace* w) const {
    delete w;
}

std::unique_ptr<AreaWorkspace, AreaWorkspaceDeleter> makeAreaWorkspace() {
    return std::unique_ptr<AreaWorkspace, AreaWorkspaceDeleter>(new AreaWorkspace);
}

namespace {

using Ring = std::vector<LayoutPoint>;

// The ring without consecutive repeats and without the closing repeat of the first point.
Ring cleanRing(const LayoutPolygon& ring) {
    Ring out;
    out.reserve(ring.size());
    for (const LayoutPoint& p : ring)
        if (out.empty() || !(out.back() == p)) out.push_back(p);
    while (out.size() > 1 && out.back() == out.front()) out.pop_back();
    return out;
}

template <class Points>
Area2 signedArea2(const Points& ring) {
    Area2 sum = 0;
    const size_t n = ring.size();
    for (size_t i = 0, j = n - 1; i < n; j = i++)
        sum +=
            static_cast<Area2>(ring[j].X) * ring[i].Y - static_cast<Area2>(ring[i].X) * ring[j].Y;
    return sum;
}

// Clipper's point type and ours read alike through these.
struct XY {
    int64_t X;
    int64_t Y;
};
std::vector<XY> asXY(const Ring& ring) {
    std::vector<XY> out;
    out.reserve(ring.size());
    for (const LayoutPoint& p : ring) out.push_back({p.x, p.y});
    return out;
}

int orientation(const LayoutPoint& a, const LayoutPoint& b, const LayoutPoint& c) {
    const Area2 v = static_cast<Area2>(int64_t{b.x} - a.x) * (int64_t{c.y} - a.y) -
                    static_cast<Area2>(int64_t{b.y} - a.y) * (int64_t{c.x} - a.x);
    return (v > 0) - (v < 0);
}

bool onSegment(const LayoutPoint& a, const LayoutPoint& b, const LayoutPoint& p) {
    return std::min(a.x, b.x) <= p.x && p.x <= std::max(a.x, b.x) && std::min(a.y, b.y) <= p.y &&
           p.y <= std::max(a.y, b.y);
}

// Closed segments ab and cd share a point.
bool segmentsMeet(const LayoutPoint& a, const LayoutPoint& b, const LayoutPoint& c,
                  const LayoutPoint& d) {
    const int o1 = orientation(a, b, c), o2 = orientation(a, b, d);
    const int o3 = orientation(c, d, a), o4 = orientation(c, d, b);
    if (o1 != o2 && o3 != o4) return true;
    return (o1 == 0 && onSegment(a, b, c)) || (o2 == 0 && onSegment(a, b, d)) ||
           (o3 == 0 && onSegment(c, d, a)) || (o4 == 0 && onSegment(c, d, b));
}

// No two edges meet except neighbours at their shared vertex, and no edge doubles back.
// Larger rings are left to the clipper.
bool isSimpleRing(const Ring& r) {
    const size_t n = r.size();
    if (n < 3 || n > 64) return false;
    for (size_t i = 0; i < n; ++i) {
        const LayoutPoint &a = r[i], &v = r[(i + 1) % n], &c = r[(i + 2) % n];
        if (orientation(a, v, c) == 0) {
            const int64_t dot = (int64_t{a.x} - v.x) * (int64_t{c.x} - v.x) +
                                (int64_t{a.y} - v.y) * (int64_t{c.y} - v.y);
            if (dot > 0) return false;
        }
    }
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 2; j < n; ++j) {
            if (i == 0 && j == n - 1) continue;  // neighbours through the closing edge
            if (segmentsMeet(r[i], r[i + 1], r[j], r[(j + 1) % n])) return false;
        }
    return true;
}

bool isAxisRect(const Ring& r) {
    if (r.size() != 4) return false;
    const bool xfirst =
        r[0].x == r[1].x && r[1].y == r[2].y && r[2].x == r[3].x && r[3].y == r[0].y;
    const bool yfirst =
        r[0].y == r[1].y && r[1].x == r[2].x && r[2].y == r[3].y && r[3].x == r[0].x;
    return xfirst || yfirst;
}

CL::Path toPath(const Ring& r) {
    CL::Path p;
    p.reserve(r.size());
    for (const LayoutPoint& q : r) p.emplace_back(q.x, q.y);
    return p;
}

CL::Path boxPath(const Box64& b) {
    return {CL::IntPoint(b.x_low, b.y_low), CL::IntPoint(b.x_high, b.y_low),
            CL::IntPoint(b.x_high, b.y_high), CL::IntPoint(b.x_low, b.y_high)};
}

// Twice the area of the union of non-empty rectangles, by slabs between their x edges: the
// exact answer for tiles that hold only rectangles, at a fraction of the clipper's cost.
Area2 rectUnionArea2(AreaWorkspace& ws) {
    ws.xs.clear();
    for (const Box64& b : ws.rects) ws.xs.push_back(b.x_low), ws.xs.push_back(b.x_high);
    std::sort(ws.xs.begin(), ws.xs.end());
    ws.xs.erase(std::unique(ws.xs.begin(), ws.xs.end()), ws.xs.end());
    std::sort(ws.rects.begin(), ws.rects.end(),
              [](const Box64& a, const Box64& b) { return a.y_low < b.y_low; });
    Area2 sum = 0;
    for (size_t k = 0; k + 1 < ws.xs.size(); ++k) {
        const int64_t x0 = ws.xs[k], x1 = ws.xs[k + 1];
        int64_t covered = 0, top = INT64_MIN;
        for (const Box64& b : ws.rects) {  // ascending y_low: merge the spans as they come
            if (b.x_low > x0 || b.x_high < x1) continue;
            if (b.y_low >= top) {
                covered += b.y_high - b.y_low;
                top = b.y_high;
            } else if (b.y_high > top) {
                covered += b.y_high - top;
                top = b.y_high;
            }
        }
        sum += static_cast<Area2>(2 * (x1 - x0)) * covered;
    }
    return sum;
}

}  // namespace

void PolygonStore::add(const LayoutPolygon& ring) {
    Ring r = cleanRing(ring);
    if (r.size() < 3) return;
    if (isAxisRect(r)) {
        const auto [xl, xh] = std::minmax(r[0].x, r[2].x);
        const auto [yl, yh] = std::minmax(r[0].y, r[2].y);
        if (xl < xh && yl < yh) rects_.push_back({xl, yl, xh, yh});
        return;
    }
    if (isSimpleRing(r)) {
        Area2 a2 = signedArea2(asXY(r));
        if (a2 == 0) return;
        if (a2 < 0) {
            std::reverse(r.begin(), r.end());
            a2 = -a2;
        }
        int32_t xl = r[0].x, xh = r[0].x, yl = r[0].y, yh = r[0].y;
        for (const LayoutPoint& p : r) {
            xl = std::min(xl, p.x), xh = std::max(xh, p.x);
            yl = std::min(yl, p.y), yh = std::max(yh, p.y);
        }
        points_.insert(points_.end(), r.begin(), r.end());
        ring_end_.push_back(static_cast<uint32_t>(points_.size()));
        poly_end_.push_back(static_cast<uint32_t>(ring_end_.size()));
        poly_bbox_.push_back({xl, yl, xh, yh});
        poly_area2_.push_back(a2);
        return;
    }
    addWithClipper(LayoutPolygonSet{std::move(r)});
}

void PolygonStore::add(const LayoutPolygonSet& rings) {
    if (rings.size() == 1) return add(rings[0]);
    addWithClipper(rings);
}

void PolygonStore::addWithClipper(const LayoutPolygonSet& rings) {
    CL::Paths in;
    for (const LayoutPolygon& ring : rings) {
        Ring r = cleanRing(ring);
        if (r.size() >= 3) in.push_back(toPath(r));
    }
    CL::Paths out;
    CL::SimplifyPolygons(in, out, CL::pftNonZero);
    Area2 a2 = 0;
    int32_t xl = INT32_MAX, xh = INT32_MIN, yl = INT32_MAX, yh = INT32_MIN;
    const size_t first_point = points_.size(), first_ring = ring_end_.size();
    for (const CL::Path& p : out) {
        if (p.size() < 3) continue;
        a2 += signedArea2(p);
        for (const CL::IntPoint& q : p) {
            const LayoutPoint lp{static_cast<int32_t>(q.X), static_cast<int32_t>(q.Y)};
            points_.push_back(lp);
            xl = std::min(xl, lp.x), xh = std::max(xh, lp.x);
            yl = std::min(yl, lp.y), yh = std::max(yh, lp.y);
        }
        ring_end_.push_back(static_cast<uint32_t>(points_.size()));
    }
    if (a2 <= 0) {  // nothing covered
        points_.resize(first_point);
        ring_end_.resize(first_ring);
        return;
    }
    poly_end_.push_back(static_cast<uint32_t>(ring_end_.size()));
    poly_bbox_.push_back({xl, yl, xh, yh});
    poly_area2_.push_back(a2);
}

Box64 PolygonStore::bbox(uint32_t id) const {
    const auto& b = (id & kPolyBit) ? poly_bbox_[id & ~kPolyBit] : rects_[id];
    return {b[0], b[2], b[1], b[3]};
}

Area2 PolygonStore::coveredArea2(const uint32_t* ids, size_t n, const Box64& box,
                                 AreaWorkspace& ws) const {
    const int64_t w = box.x_high - box.x_low, h = box.y_high - box.y_low;
    if (n == 0 || w <= 0 || h <= 0) return 0;
    const Area2 full = static_cast<Area2>(2 * w) * h;

    auto inside = [&](const Box64& b) {
        return b.x_low >= box.x_low && b.x_high <= box.x_high && b.y_low >= box.y_low &&
               b.y_high <= box.y_high;
    };
    auto clipped = [&](const Box64& b) {
        return Box64{std::max(b.x_low, box.x_low), std::min(b.x_high, box.x_high),
                     std::max(b.y_low, box.y_low), std::min(b.y_high, box.y_high)};
    };
    // Cheap answers: one item, or a rectangle that covers the whole box.
    if (n == 1) {
        const Box64 b = bbox(ids[0]);
        const Box64 c = clipped(b);
        if (c.x_high <= c.x_low || c.y_high <= c.y_low) return 0;
        if (!(ids[0] & kPolyBit))
            return static_cast<Area2>(2 * (c.x_high - c.x_low)) * (c.y_high - c.y_low);
        if (inside(b)) return poly_area2_[ids[0] & ~kPolyBit];
    }
    for (size_t k = 0; k < n; ++k) {
        if (ids[k] & kPolyBit) continue;
        const Box64 b = bbox(ids[k]);
        if (b.x_low <= box.x_low && b.x_high >= box.x_high && b.y_low <= box.y_low &&
            b.y_high >= box.y_high)
            return full;
    }

    ws.rects.clear();
    bool rects_only = true;
    for (size_t k = 0; k < n && rects_only; ++k) {
        const Box64 c = clipped(bbox(ids[k]));
        if (c.x_high <= c.x_low || c.y_high <= c.y_low) continue;
        rects_only = !(ids[k] & kPolyBit);
        ws.rects.push_back(c);
    }
    if (rects_only) return rectUnionArea2(ws);

    ws.subject.clear();
    bool all_inside = true;
    for (size_t k = 0; k < n; ++k) {
        const Box64 b = bbox(ids[k]);
        const Box64 c = clipped(b);
        if (c.x_high <= c.x_low || c.y_high <= c.y_low) continue;
        if (!(ids[k] & kPolyBit)) {
            ws.subject.push_back(boxPath(c));
            continue;
        }
        all_inside = all_inside && inside(b);
        const uint32_t p = ids[k] & ~kPolyBit;
        for (uint32_t r = p ? poly_end_[p - 1] : 0; r < poly_end_[p]; ++r) {
            const uint32_t begin = r ? ring_end_[r - 1] : 0;
            CL::Path& path = ws.subject.emplace_back();
            path.reserve(ring_end_[r] - begin);
            for (uint32_t q = begin; q < ring_end_[r]; ++q)
                path.emplace_back(points_[q].x, points_[q].y);
        }
    }
    if (ws.subject.empty()) return 0;
    ws.clipper.Clear();
    ws.clipper.AddPaths(ws.subject, CL::ptSubject, true);
    if (all_inside) {
        ws.clipper.Execute(CL::ctUnion, ws.solution, CL::pftNonZero, CL::pftNonZero);
    } else {
        ws.clipper.AddPath(boxPath(box), CL::ptClip, true);
        ws.clipper.Execute(CL::ctIntersection, ws.solution, CL::pftNonZero, CL::pftNonZero);
    }
    Area2 sum = 0;
    for (const CL::Path& p : ws.solution) sum += signedArea2(p);
    return sum;
}

Area2 PolygonStore::coveredArea2(const Box64& box) const {
    std::vector<uint32_t> ids(size());
    for (size_t k = 0; k < ids.size(); ++k) ids[k] = idAt(k);
    auto ws = makeAreaWorkspace();
    return coveredArea2(ids.data(), ids.size(), box, *ws);
}

void PolygonStore::clear() {
    *this = PolygonStore();
}

size_t PolygonStore::memoryBytes() const {
    return rects_.capacity() * sizeof(rects_[0]) + points_.capacity() * sizeof(LayoutPoint) +
           (ring_end_.capacity() + poly_end_.capacity()) * sizeof(uint32_t) +
           poly_bbox_.capacity() * sizeof(poly_bbox_[0]) + poly_area2_.capacity() * sizeof(Area2);
}

}  // namespace process_effects
