#include "solver/medium_manager.h"

#include <cmath>
#include <map>

#include "solver/config.h"

namespace RW2D {

// ---------------------------------------------------------------------------------------------
// MediumLayer

MediumLayer::MediumLayer(const MediumLayer& o)
    : z(o.z), eps(o.eps), top(o.top), raw_z(o.raw_z), raw_eps(o.raw_eps) {
    media.reserve(o.media.size());
    for (const Medium* m : o.media) media.push_back(new Medium(*m));
}

MediumLayer& MediumLayer::operator=(const MediumLayer& o) {
    if (this == &o) return *this;
    MediumLayer copy(o);
    *this = std::move(copy);
    return *this;
}

MediumLayer::MediumLayer(MediumLayer&& o) noexcept
    : z(std::move(o.z)),
      eps(std::move(o.eps)),
      top(o.top),
      raw_z(std::move(o.raw_z)),
      raw_eps(std::move(o.raw_eps)),
      media(std::move(o.media)) {
    o.media.clear();
}

MediumLayer& MediumLayer::operator=(MediumLayer&& o) noexcept {
    if (this == &o) return *this;
    clear_media();
    z = std::move(o.z);
    eps = std::move(o.eps);
    top = o.top;
    raw_z = std::move(o.raw_z);
    raw_eps = std::move(o.raw_eps);
    media = std::move(o.media);
    o.media.clear();
    return *this;
}

MediumLayer::~MediumLayer() {
    clear_media();
}

void MediumLayer::clear_media() {
    for (Medium* m : media) delete m;
    media.clear();
}

void MediumLayer::set_layers(const std::vector<std::array<double, 2>>& layers) {
    raw_z.clear();
    raw_eps.clear();
    for (const auto& l : layers) {
        // Two neighbours of equal permittivity are one layer.
        if (!raw_eps.empty() && std::abs(raw_eps.back() - l[1]) < GEO_EPS) continue;
        raw_z.push_back(l[0]);
        raw_eps.push_back(l[1]);
    }
    guard();
}

void MediumLayer::guard() {
    const double inf = Shape::SPACE_INF;
    const double e_lo = raw_eps.empty() ? 1.0 : raw_eps.front();
    const double e_hi = raw_eps.empty() ? 1.0 : raw_eps.back();
    z.assign(GUARDS, -inf);
    eps.assign(GUARDS, e_lo);
    for (std::size_t i = 1; i < raw_z.size(); ++i) {
        z.push_back(raw_z[i]);
        eps.push_back(raw_eps[i]);
    }
    z.insert(z.end(), GUARDS, inf);
    eps.insert(eps.end(), GUARDS, e_hi);
}

std::uint64_t MediumLayer::hash_value() const {
    std::uint64_t h = 5381;
    const auto mix = [&h](double v) {
        const auto q = static_cast<std::int32_t>(std::lround(10000.0 * v));
        h = h * 5 + static_cast<std::uint64_t>(static_cast<std::int64_t>(q));
    };
    for (std::size_t i = 0; i < raw_z.size(); ++i) {
        mix(raw_z[i]);
        mix(raw_eps[i]);
    }
    return h;
}

void MediumLayer::search_layer(double lo, double hi, MultilayerResult& out) const {
    // On a boundary the range starts with the permittivity above it; either way the packed index
    // is the layer holding lo and the next boundary to report is the one above it.
    const int i = search_layer(lo).first;
    const double first = eps[i];
    std::size_t k = static_cast<std::size_t>(i) + 1;
    out.heights.clear();
    out.eps.clear();
    out.heights.push_back(0.0);
    out.eps.push_back(first);
    for (; z[k] < hi - GEO_EPS; ++k) {
        out.heights.push_back(z[k] - lo);
        out.eps.push_back(eps[k]);
    }
}

// ---------------------------------------------------------------------------------------------
// MediumManager

MediumManager::~MediumManager() {
    delete window;
}

void MediumManager::set_window(Rectangle* w) {
    delete window;
    window = w ? new Rectangle(*w) : nullptr;
}

void MediumManager::init(const std::vector<std::array<double, 2>>& layers,
                         const std::vector<std::pair<double, Rectangle*>>& pieces, Rectangle* w) {
    set_window(w);
    layer.top = w ? w->top : 0.0;
    layer.set_layers(layers);
    for (Medium* m : layer.media) delete m;
    layer.media.clear();
    layer.media.reserve(pieces.size());
    for (const auto& [e, r] : pieces) layer.media.push_back(new Medium(e, *r));
}

namespace {
// Reflection of the interval [lo, hi] at line c: maps each side s to 2c - s and swaps them.
inline void reflect(double c, double& lo, double& hi) {
    const double nlo = 2 * c - hi;
    const double nhi = 2 * c - lo;
    lo = nlo;
    hi = nhi;
}
}  // namespace

void MediumManager::mirror_medium() {
    const double T = window->top, B = window->bottom;
    const double L = window->left, R = window->right;
    const std::vector<double>& z = layer.raw_z;
    const std::vector<double>& e = layer.raw_eps;
    const std::size_t n = z.size();

    MediumLayer& m = mirror_layer;
    m.top = T + (T - B);
    m.raw_z.clear();
    m.raw_eps.clear();
    m.raw_z.push_back(B - (T - B));
    m.raw_eps.push_back(e.empty() ? 1.0 : e.back());
    for (std::size_t i = n; i-- > 1;) {  // the stack mirrored at B
        m.raw_z.push_back(2 * B - z[i]);
        m.raw_eps.push_back(e[i - 1]);
    }
    for (std::size_t i = 1; i < n; ++i) {  // the stack itself
        m.raw_z.push_back(z[i]);
        m.raw_eps.push_back(e[i]);
    }
    for (std::size_t i = n; i-- > 1;) {  // the stack mirrored at T
        m.raw_z.push_back(2 * T - z[i]);
        m.raw_eps.push_back(e[i - 1]);
    }
    m.guard();

    for (Medium* md : m.media) delete md;
    m.media.clear();
    m.media.reserve(layer.media.size() * 9);
    const double xs[3] = {0.0, L, R};
    const double ys[3] = {0.0, B, T};
    for (const Medium* md : layer.media) {
        m.media.push_back(new Medium(*md));
        for (int ix = 0; ix < 3; ++ix) {
            for (int iy = 0; iy < 3; ++iy) {
                if (ix == 0 && iy == 0) continue;
                const Rectangle& r = *md->shape;
                double l = r.left, rt = r.right, b = r.bottom, t = r.top;
                if (ix) reflect(xs[ix], l, rt);
                if (iy) reflect(ys[iy], b, t);
                m.media.push_back(new Medium(md->eps, Rectangle(l, rt, t, b)));
            }
        }
    }
}

bool MediumManager::merge_medium(bool along_x, std::vector<Medium*>& media) {
    using Key = std::pair<std::int64_t, std::int64_t>;
    std::map<Key, std::vector<Medium*>> groups;
    for (Medium* m : media) {
        const Rectangle& r = *m->shape;
        const Key k = along_x
                          ? Key{std::llround(r.bottom / GEO_EPS), std::llround(r.top / GEO_EPS)}
                          : Key{std::llround(r.left / GEO_EPS), std::llround(r.right / GEO_EPS)};
        groups[k].push_back(m);
    }

    std::vector<Medium*> out;
    out.reserve(media.size());
    for (auto& [key, g] : groups) {
        std::stable_sort(g.begin(), g.end(), [along_x](const Medium* a, const Medium* b) {
            return along_x ? a->shape->left < b->shape->left : a->shape->bottom < b->shape->bottom;
        });
        bool have_prev = false;  // only media of this group may join
        for (const Medium* m : g) {
            if (have_prev) {
                Medium* p = out.back();
                const Rectangle& pr = *p->shape;
                const Rectangle& mr = *m->shape;
                const bool same = std::abs(p->eps - m->eps) < GEO_EPS || p->eps < 0 || m->eps < 0;
                const bool touch = along_x ? std::abs(pr.right - mr.left) < GEO_EPS
                                           : std::abs(pr.top - mr.bottom) < GEO_EPS;
                if (same && touch) {
                    p->shape->set(pr.left, mr.right, mr.top, pr.bottom);
                    p->eps = std::max(p->eps, m->eps);
                    continue;
                }
            }
            out.push_back(new Medium(*m));
            have_prev = true;
        }
    }

    Debugger::log("Merge dielectrics ", along_x ? "X " : "Y ", media.size(), "->", out.size());
    const bool changed = out.size() != media.size();
    for (Medium* m : media) delete m;
    media.swap(out);
    return changed;
}

void MediumManager::merge_until_stable(std::vector<Medium*>& media) {
    bool along_x = true;
    while (merge_medium(along_x, media)) along_x = !along_x;
}

}  // namespace RW2D
