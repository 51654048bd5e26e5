#include "solver/online_table_fitter.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "solver/rounding.h"

namespace RW2D {

namespace {

// Strata closer than 1e-4 in real units fall together.
inline int64_t stratum_key(double pos) {
    return round_half_away(10000.0 * pos);
}

inline double clamp_to(double v, double lo, double hi) {
    return std::min(std::max(v, lo), hi);
}

// First index whose cumulative value reaches v; a draw above the last value (rounding) takes the
// last panel. The values ascend, so that index is the count of values below v: counted without
// branches, as the exit of a search loop on a random draw is mispredicted at every hop.
template <int N>
inline int first_at_least(const double (&cdf)[N], double v) {
    int below = 0;
    for (int j = 0; j < N; ++j) below += cdf[j] < v;
    return below < N ? below : N - 1;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Fitting

void online_table_fitter::fill_layers(const MediumLayer& layers, double lo, double hi) {
    copy_stack(stack_of(layers, lo, hi));
}

void online_table_fitter::copy_stack(const layer_stack& s) {
    heights.clear();
    eps.clear();
    for (size_t j = 0; j < s.size(); ++j) {
        heights.push_back(s.height(j));
        eps.push_back(s.permittivity(j));
    }
}

void online_table_fitter::fit(const MediumManager& media, const Vector2D& centre, double& size,
                              bool weight_hop, RandGen* rng) {
    if (fit_in_place(media, centre, size, weight_hop, rng)) copy_stack(stack);
}

bool online_table_fitter::fit_in_place(const MediumManager& media, const Vector2D& centre,
                                       double& size, bool weight_hop, RandGen* rng) {
    const double a = size, x = centre.x, z = centre.y;
    const MediumLayer& M = layers_of(media, centre, a);

    candidates.clear();
    const double r = 0.98 * a;
    double hz = a, hx = a;
    for (const Medium* m : M.media) {
        const Rectangle& b = *m->shape;
        const double up = b.bottom - z, dn = z - b.top, rt = b.left - x, lf = x - b.right;
        if (up >= r || dn >= r || rt >= r || lf >= r) continue;
        const double gz = std::max(dn, up), gx = std::max(lf, rt);
        if (gz < hz) {
            if (std::fabs(rt) >= gz && std::fabs(lf) >= gz)
                hz = std::min({std::fabs(lf), std::fabs(rt), hz});
            else
                hz = gz;
        }
        if (gx < hx) {
            if (std::fabs(up) >= gx && std::fabs(dn) >= gx)
                hx = std::min({std::fabs(dn), std::fabs(up), hx});
            else
                hx = gx;
        }
        candidates.push_back(m);
    }

    if (candidates.empty()) {
        direction = 1;
        stack = stack_of(M, z - a, z + a);
        return true;
    }

    const auto where = M.search_layer(z);
    double t = 0;
    if (!where.second) t = std::min(z - M.z[where.first], M.z[where.first + 1] - z);
    t = std::min(t, hx);
    const double w = std::max(t, hz);

    double new_size;
    if (weight_hop) {
        new_size = std::max(0.1 * a, w);
    } else if (0.2 * a > w) {
        direction = 0;
        oct_pack_sample(centre, a, M, rng);
        return false;
    } else {
        new_size = w;
    }
    size = std::min(new_size, a);
    determine_direction(centre, size, M);
    stratified_pack_sample(centre, size, M, rng);
    return false;
}

void online_table_fitter::determine_direction(const Vector2D& centre, double a,
                                              const MediumLayer& layers) {
    const double x = centre.x, z = centre.y;
    fill_layers(layers, z - a, z + a);
    // Total length of the edges that cross the box, horizontal against vertical.
    double lh = 2.0 * static_cast<double>(heights.size() - 1) * a;
    if (candidates.empty()) {
        direction = 1;
        return;
    }
    double lv = 0;
    const double s = 0.98 * a;
    for (const Medium* m : candidates) {
        const Rectangle& b = *m->shape;
        const int nv = (b.left > x - s) + (b.right < x + s);
        const int nh = (b.top < z + s) + (b.bottom > z - s);
        if (nv > 0) lv += nv * std::max(0.0, std::min(z + a, b.top) - std::max(z - a, b.bottom));
        if (nh > 0) lh += nh * std::max(0.0, std::min(x + a, b.right) - std::max(x - a, b.left));
    }
    direction = lv > lh ? 2 : 1;
}

size_t online_table_fitter::find_stratum(int64_t key) const {
    size_t lo = 0, hi = n_strata_;
    while (lo < hi) {
        const size_t mid = (lo + hi) / 2;
        if (strata_[mid].key < key)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

size_t online_table_fitter::split_at(int64_t key, double pos) {
    const size_t at = find_stratum(key);
    if (at < n_strata_ && strata_[at].key == key) return at;
    if (n_strata_ == strata_.size()) strata_.emplace_back();
    // Bring the spare entry into place; swaps move the media storage, never copy it.
    std::rotate(strata_.begin() + static_cast<long>(at),
                strata_.begin() + static_cast<long>(n_strata_),
                strata_.begin() + static_cast<long>(n_strata_) + 1);
    ++n_strata_;
    stratum& s = strata_[at];
    s.key = key;
    s.pos = pos;
    if (at > 0) {
        s.eps = strata_[at - 1].eps;
        s.media.assign(strata_[at - 1].media.begin(), strata_[at - 1].media.end());
    } else {
        s.eps = 0;
        s.media.clear();
    }
    return at;
}

void online_table_fitter::stratified_pack_sample(const Vector2D& centre, double a,
                                                 const MediumLayer& layers, RandGen* rng) {
    const double x = centre.x, z = centre.y;
    const bool along_x = direction == 2;
    n_strata_ = 0;
    double origin;
    if (!along_x) {
        origin = z - a;
        for (size_t i = 0; i < heights.size(); ++i) {
            const int64_t k = stratum_key(heights[i]);
            const size_t at = find_stratum(k);
            if (at < n_strata_ && strata_[at].key == k) continue;
            const size_t s = split_at(k, static_cast<double>(k) / 10000.0);
            strata_[s].eps = eps[i];
            strata_[s].media.clear();
        }
    } else {
        // The x axis has no layers of its own: one stratum, filled by sampling.
        origin = x - a;
        const size_t s = split_at(0, 0.0);
        strata_[s].eps = 0;
        strata_[s].media.clear();
    }

    for (const Medium* m : candidates) {
        const Rectangle& b = *m->shape;
        const double lo = clamp_to((along_x ? b.left : b.bottom) - origin, 0.0, 2 * a);
        const double hi = clamp_to((along_x ? b.right : b.top) - origin, 0.0, 2 * a);
        const int64_t kl = stratum_key(lo), kh = stratum_key(hi);
        split_at(kl, lo);
        split_at(kh, hi);
        for (size_t i = find_stratum(kl); i < n_strata_ && strata_[i].key < kh; ++i)
            strata_[i].media.push_back(m);
    }
    if (n_strata_ > 0 && strata_[n_strata_ - 1].key == stratum_key(2 * a)) --n_strata_;

    double samples[4];
    for (double& t : samples) t = (2 * rng->uniform() - 1) * a + (along_x ? z : x);

    for (size_t i = 0; i < n_strata_; ++i) {
        stratum& s = strata_[i];
        if (!along_x && s.media.empty()) continue;
        double sum = 0;
        for (double t : samples) {
            const Medium* hit = nullptr;
            for (const Medium* m : s.media) {
                const Rectangle& b = *m->shape;
                const bool inside =
                    along_x ? (b.bottom < t && t < b.top) : (b.left < t && t < b.right);
                if (inside) {
                    hit = m;
                    break;
                }
            }
            if (hit)
                sum += 1.0 / hit->eps;
            else if (!along_x)
                sum += 1.0 / s.eps;
            else
                sum += 1.0 / layers.eps[layers.search_layer(t).first];
        }
        s.eps = 4.0 / sum;
    }

    heights.clear();
    eps.clear();
    for (size_t i = 0; i < n_strata_; ++i) {
        heights.push_back(strata_[i].pos);
        eps.push_back(strata_[i].eps);
    }
}

void online_table_fitter::oct_pack_sample(const Vector2D& centre, double a,
                                          const MediumLayer& layers, RandGen* rng) {
    heights.assign(4, 0.0);
    eps.assign(4, 0.0);
    double sum[4] = {0, 0, 0, 0};
    for (int round = 0; round < 4; ++round) {
        const double u = rng->uniform();
        const double v = rng->uniform();
        const double x0 = centre.x - u * a, z0 = centre.y - v * a;
        const Vector2D points[4] = {{x0, z0}, {x0 + a, z0}, {x0 + a, z0 + a}, {x0, z0 + a}};
        for (int q = 0; q < 4; ++q) {
            const Vector2D& p = points[q];
            const Medium* hit = nullptr;
            for (const Medium* m : candidates) {
                const Rectangle& b = *m->shape;
                if (b.left <= p.x && p.x <= b.right && b.bottom <= p.y && p.y <= b.top) {
                    hit = m;
                    break;
                }
            }
            sum[q] += 1.0 / (hit ? hit->eps : layers.eps[layers.search_layer(p.y).first]);
        }
    }
    for (int q = 0; q < 4; ++q) eps[q] = 4.0 / sum[q];
}

// ---------------------------------------------------------------------------------------------
// Sampling

online_table_id2offset::online_table_id2offset() {
    for (int j = 0; j < gft_solver::NGRID; ++j)
        offset_[j] = (2 * j + 1) / static_cast<double>(gft_solver::NGRID) - 1;
}

const online_table_id2offset& online_table_id2offset::instance() {
    static const online_table_id2offset table;
    return table;
}

namespace {

// A point on the box surface drawn from a table's face and panel distributions: u picks the face
// (lower, upper, side), v the panel of that face's block. All three records share this layout.
struct SurfacePoint {
    double tx, tz;
    int face;   // 0 lower, 1 upper, 2 side
    int panel;  // index into that face's block
};

template <class Table>
inline SurfacePoint draw_surface_point(const Table* t, double u, double v) {
    const online_table_id2offset& offset = online_table_id2offset::instance();
    if (t->face_cdf[0] > u) {
        const int j = first_at_least(t->lower_cdf, v);
        return {offset[j], -1, 0, j};
    }
    if (t->face_cdf[1] > u) {
        const int j = first_at_least(t->upper_cdf, v);
        return {offset[j], 1, 1, j};
    }
    const int j = first_at_least(t->side_cdf, v);
    return {-1, offset[j], 2, j};
}

// v negated when bit is 1, by its sign bit: the bit is a coin toss, which a branch would guess
// wrong every other hop.
inline double negated_if(double v, int bit) {
    return std::bit_cast<double>(std::bit_cast<std::uint64_t>(v) ^ static_cast<std::uint64_t>(bit)
                                                                       << 63);
}

}  // namespace

std::array<double, 2> online_sampling(const PDFGFT* t, RandGen* rng) {
    const double u = rng->uniform(), v = rng->uniform();
    SurfacePoint p = draw_surface_point(t, u, v);
    return {negated_if(p.tx, rng->bit()), p.tz};
}

std::array<double, 3> online_sampling(const PDFWVTz* t, RandGen* rng) {
    const double u = rng->uniform(), v = rng->uniform();
    SurfacePoint p = draw_surface_point(t, u, v);
    const double T = t->total_weight;
    const double w = p.face == 0 ? -T : p.face == 1 ? T : (t->side_sign[p.panel] ? T : -T);
    return {w, negated_if(p.tx, rng->bit()), p.tz};  // the z derivative is even in x
}

std::array<double, 3> online_sampling(const PDFWVTx* t, RandGen* rng) {
    const double u = rng->uniform(), v = rng->uniform();
    SurfacePoint p = draw_surface_point(t, u, v);
    const int b = rng->bit();  // the x derivative is odd in x
    return {negated_if(-t->total_weight, b), negated_if(p.tx, b), p.tz};
}

std::array<double, 2> oct_sampling(const PDFGFT* t, std::vector<double>& quarter_eps,
                                   RandGen* rng) {
    const online_table_id2offset& offset = online_table_id2offset::instance();
    const double u = rng->uniform();
    const double o = offset[first_at_least(t->lower_cdf, u)];
    double total = 0;
    for (double e : quarter_eps) total += e;
    double run = 0;
    for (double& e : quarter_eps) {
        run += e;
        e = run / total;
    }
    quarter_eps.back() = 1.0;
    const double v = rng->uniform();
    int q = 0;
    while (q < 3 && quarter_eps[q] < v) ++q;
    const int b = rng->bit();
    switch (b + 2 * q) {
        case 0:
            return {o, -1};
        case 1:
            return {-1, o};
        case 2:
            return {-o, -1};
        case 3:
            return {1, o};
        case 4:
            return {-o, 1};
        case 5:
            return {1, -o};
        case 6:
            return {o, 1};
        default:
            return {-1, -o};
    }
}

}  // namespace RW2D
