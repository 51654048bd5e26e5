#include "solver/walk_manager.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace RW2D {

double neumann_reflect(double lo, double x, double hi) {
    if (lo < x && x < hi) return x;
    const double L = hi - lo;
    const double m = std::fmod(std::abs(x - lo), 2 * L);
    return hi - std::abs(L - m);
}

// ---------------------------------------------------------------------------------------------
// Start points on the Gaussian surface

WalkPoint NetManager::sample(NormDir& dir, RandGen* rng) const {
    const Rectangle& g = *master->gauss;
    const double* cdf = sampler->cdf.data();
    const int n = sampler->count;
    const double w = g.width(), h = g.height();
    const Rectangle& win = *window;
    for (;;) {
        const double u = rng->uniform();
        // Largest i with cdf[i] <= u.
        const int i = static_cast<int>(std::upper_bound(cdf, cdf + n, u) - cdf) - 1;
        const double v = rng->uniform();
        WalkPoint wp;
        switch (i) {
            case 0:
                wp.point = {g.left + v * w, g.bottom};
                dir = NORM_Y_NEG;
                break;
            case 1:
                wp.point = {g.left + v * w, g.top};
                dir = NORM_Y_POS;
                break;
            case 2:
                wp.point = {g.left, g.bottom + v * h};
                dir = NORM_X_NEG;
                break;
            case 3:
                wp.point = {g.right, g.bottom + v * h};
                dir = NORM_X_POS;
                break;
            default:
                Debugger::raise_error("gauss sample");
        }
        const Vector2D& p = wp.point;
        if (win.left <= p.x && p.x <= win.right && win.bottom <= p.y && p.y <= win.top) return wp;
    }
}

// ---------------------------------------------------------------------------------------------
// Walker

WalkManager::WalkManager(NetManager* n, const Config& config, online_table_manager& t, int seed)
    : tables(t),
      nets(n),
      rng(static_cast<std::uint32_t>(seed)),
      dump_tables(config.dump_tables),
      data_dir(config.data_dir),
      media_(&n->media),
      neumann_(n->space.neumann_walls),
      win_left_(n->window->left),
      win_right_(n->window->right),
      win_bottom_(n->window->bottom),
      win_top_(n->window->top) {
    if (config.load_tables) tables.load(n->media.layer.hash_value(), config.data_dir);
    for (std::uint32_t k = 0; k < TABLE_SIZE; ++k) {
        const double a = 2 * std::numbers::pi * k / TABLE_SIZE;
        cos_table[k] = std::cos(a);
        sin_table[k] = std::sin(a);
    }
}

void WalkManager::step(double r) {
    switch (hop_type) {
        case HOP_WVT:
            fitter.fit(*media_, position, r, true, &rng);
            hop_type = HOP_GFT;
            transfer_online_table_wvt(r);
            break;
        case HOP_GFT:
            if (fitter.fit_in_place(*media_, position, r, false, &rng))
                layered_hop(r);
            else
                transfer_online_table_gft(r);
            break;
        default:
            Debugger::raise_error("unknown hop type");
    }
}

void WalkManager::walk() {
    for (;;) {
        start = nets->sample(norm_dir, &rng);
        hops = 1;
        hit_net = nullptr;
        hop_type = HOP_WVT;
        position = start.point;
        weight = start.weight;
        for (;;) {
            fold();
            WireNet* hit = nullptr;
            double r = 0.0;
            const NeighborResult ret =
                nets->neighbor(position, hit, r, last_net, hop_type == HOP_WVT);
            if (hit) last_net = hit;
            if (ret == NeighborResult::Absorbed) {
                if (hit) {
                    hit_net = hit;
                    return;
                }
                break;  // left through the outer boundary: begin a fresh walk, no trace kept
            }
            step(r);
            ++hops;
        }
    }
}

void WalkManager::comb_walk() {
    double dx = comb_center.point.x - start.point.x;
    double dy = comb_center.point.y - start.point.y;
    switch (norm_dir) {
        case NORM_X_POS:
        case NORM_X_NEG:
            dx = -dx;
            break;
        case NORM_Y_POS:
        case NORM_Y_NEG:
            dy = -dy;
            break;
        default:
            Debugger::raise_error("unknown hop type");
    }
    hops = 1;
    hit_net = nullptr;
    hop_type = HOP_GFT;
    position = {start.point.x + dx, start.point.y + dy};
    weight = -start.weight;
    while (hop()) {
    }
}

bool WalkManager::hop() {
    fold();
    WireNet* hit = nullptr;
    double r = 0.0;
    const NeighborResult ret = nets->neighbor(position, hit, r, last_net, hop_type == HOP_WVT);
    if (hit) last_net = hit;
    if (ret == NeighborResult::Absorbed) {
        hit_net = hit;
        return false;
    }
    step(r);
    ++hops;
    return true;
}

void WalkManager::transfer_online_table_gft(double r) {
    double ux, uy;
    if (fitter.direction == 0) {
        const std::array<double, 2> s = oct_sampling(tables.get_single_gft(), fitter.eps, &rng);
        ux = s[0];
        uy = s[1];
    } else {
        const PDFGFT* table = tables.get_GFT(fitter.heights, fitter.eps, 2 * r, &rng);
        const std::array<double, 2> s = online_sampling(table, &rng);
        if (fitter.direction == 2) {  // table stacked along y, medium along x
            ux = s[1];
            uy = -s[0];
        } else {
            ux = s[0];
            uy = s[1];
        }
    }
    position.x += r * ux;
    position.y += r * uy;
}

void WalkManager::layered_hop(double r) {
    const PDFGFT* t = tables.get_GFT(fitter.stack, 2 * r, &rng);
    const std::array<double, 2> s = online_sampling(t, &rng);
    position.x += r * s[0];
    position.y += r * s[1];
}

void WalkManager::transfer_online_table_wvt(double r) {
    // The start side in the table's own frame: which derivative the weight table must give.
    NormDir d = norm_dir;
    if (fitter.direction == 2) {
        // Stacked along x: the table frame is turned a quarter, its height axis along world x.
        switch (norm_dir) {
            case NORM_X_POS:
                d = NORM_Y_POS;
                break;
            case NORM_X_NEG:
                d = NORM_Y_NEG;
                break;
            case NORM_Y_POS:
                d = NORM_X_NEG;
                break;
            case NORM_Y_NEG:
                d = NORM_X_POS;
                break;
            default:
                d = NORM_X_NEG;
        }
    } else if (fitter.direction != 1) {
        Debugger::raise_error("WVT cannot be OCT");
    }
    double e = 1.0;
    std::array<double, 3> s;
    if (d == NORM_Y_POS || d == NORM_Y_NEG)
        s = online_sampling(tables.get_WVTz(fitter.heights, fitter.eps, 2 * r, e, &rng), &rng);
    else
        s = online_sampling(tables.get_WVTx(fitter.heights, fitter.eps, 2 * r, e, &rng), &rng);
    double w = s[0];
    if (d == NORM_X_NEG || d == NORM_Y_NEG) w = -w;
    weight = (w / r) * e * weight;
    if (fitter.direction == 2) {
        position.x += r * s[2];
        position.y -= r * s[1];
    } else {
        position.x += r * s[1];
        position.y += r * s[2];
    }
}

}  // namespace RW2D
