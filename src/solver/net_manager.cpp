#include "solver/net_manager.h"

#if defined(__AVX2__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <sstream>

namespace RW2D {

namespace {

constexpr double INF = Shape::SPACE_INF;

// Distance of the guard boundary inside the outer window of the reflecting case.
constexpr double OUTER_GUARD = 0.001;

// Upper bound on grid cells; a finer grid only costs memory.
constexpr double MAX_GRID_CELLS = 262144.0;

template <class B>
inline double chebyshev(const B& b, const Vector2D& p) noexcept {
    return std::max(std::max(p.y - b.top, p.x - b.right), std::max(b.bottom - p.y, b.left - p.x));
}

std::string rect_text(const Rectangle& r) {
    std::ostringstream os;
    r.output(os);
    return os.str();
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// WireNet

WireNet::~WireNet() {
    delete shape;
    delete gauss;
}

void WireNet::build_gauss_surface(std::vector<WireNet*>& nets, Rectangle* window, double /*margin*/,
                                  bool neumann) {
    if (!is_master) return;
    const double bl = shape->box_left, br = shape->box_right, bt = shape->box_top,
                 bb = shape->box_bottom;
    delete gauss;
    gauss = nullptr;

    if (net_kind == 1) {
        // Sides sized apart: clearance above/below among nets overlapping in x, then left/right
        // among nets overlapping the grown y range; a side without neighbour takes the master's own
        // size.
        double up = INF, down = INF, lf = INF, rt = INF;
        for (const WireNet* n : nets) {
            if (n->is_master) continue;
            const Shape& s = *n->shape;
            if (!(s.box_right + GEO_EPS > bl && br + GEO_EPS > s.box_left)) continue;
            if (s.box_bottom > bt - GEO_EPS)
                up = std::min(up, s.box_bottom - bt);
            else if (s.box_top < bb + GEO_EPS)
                down = std::min(down, bb - s.box_top);
            else
                Debugger::raise_error("wire net overlap");
        }
        if (up >= INF) up = bt - bb;
        if (down >= INF) down = bt - bb;
        const double ylo = bb - down, yhi = bt + up;
        for (const WireNet* n : nets) {
            if (n->is_master) continue;
            const Shape& s = *n->shape;
            if (!(s.box_top + GEO_EPS > ylo && yhi + GEO_EPS > s.box_bottom)) continue;
            if (s.box_left > br - GEO_EPS)
                rt = std::min(rt, s.box_left - br);
            else if (s.box_right < bl + GEO_EPS)
                lf = std::min(lf, bl - s.box_right);
        }
        if (rt >= INF) rt = br - bl;
        if (lf >= INF) lf = br - bl;
        gauss = new Rectangle(bl - lf / 2, br + rt / 2, bt + up / 2, bb - down / 2);
        return;
    }

    double m = INF;
    for (const WireNet* n : nets) {
        if (n->is_master) continue;
        const Shape& s = *n->shape;
        const double g = std::max(std::max(s.box_left - br, s.box_bottom - bt),
                                  std::max(bb - s.box_top, bl - s.box_right));
        m = std::min(m, g);
    }
    if (!neumann) {
        m = std::min(
            {m, window->top - bt, bb - window->bottom, bl - window->left, window->right - br});
    }
    const double h = m / 2;
    Debugger::log("GS ", std::to_string(h));
    gauss = new Rectangle(bl - h, br + h, bt + h, bb - h);
}

// ---------------------------------------------------------------------------------------------
// Construction

NetManager::NetManager(const std::vector<Rectangle>& wires,
                       const std::vector<std::array<double, 2>>& layers,
                       const std::vector<std::pair<double, Rectangle>>& dielectrics,
                       const Rectangle& win, const Config::SpaceArgs& space_args,
                       const Config::ApproxArgs& approx_args)
    : space(space_args), approx(approx_args) {
    boundary = space.neumann_walls ? 1 : 0;
    window = new Rectangle(win);

    std::vector<std::pair<double, Rectangle*>> cells = split_dielectrics(dielectrics);

    nets.reserve(wires.size());
    for (std::size_t i = 0; i < wires.size(); ++i) {
        Rectangle w = wires[i];
        clip_wire(w, *window);
        auto* net = new WireNet();
        net->shape = new Rectangle(w);
        net->name = std::to_string(i);
        net->is_master = (i == 0);
        nets.push_back(net);
    }
    master = nets.empty() ? nullptr : nets.front();

    filter_pieces(cells);
    pieces = std::move(cells);
    media.init(layers, pieces, window);
    finish_media();
    finish_nets();
}

NetManager::~NetManager() {
    for (WireNet* n : nets) delete n;
    for (auto& pc : pieces) delete pc.second;
    delete wire_window;
    delete neighbor_window;
    delete window;
    delete outer_window;
}

std::vector<std::pair<double, Rectangle*>> NetManager::split_dielectrics(
    const std::vector<std::pair<double, Rectangle>>& dielectrics) {
    std::vector<std::pair<double, Rectangle*>> cells;
    std::vector<double> xs, ys;
    for (std::size_t i = 0; i < dielectrics.size(); ++i) {
        const Rectangle& a = dielectrics[i].second;
        xs.assign({a.left, a.right});
        ys.assign({a.bottom, a.top});
        // Largest signed gap between a and the segment [l, r] x [b, t]; negative when it crosses
        // a's interior.
        const auto gap = [&a](double l, double r, double b, double t) {
            return std::max(std::max(l - a.right, a.left - r), std::max(b - a.top, a.bottom - t));
        };
        for (std::size_t j = i + 1; j < dielectrics.size(); ++j) {
            const Rectangle& c = dielectrics[j].second;
            if (gap(c.left, c.right, c.bottom, c.bottom) < -GEO_EPS) ys.push_back(c.bottom);
            if (gap(c.left, c.right, c.top, c.top) < -GEO_EPS) ys.push_back(c.top);
            if (gap(c.left, c.left, c.bottom, c.top) < -GEO_EPS) xs.push_back(c.left);
            if (gap(c.right, c.right, c.bottom, c.top) < -GEO_EPS) xs.push_back(c.right);
        }
        std::sort(xs.begin(), xs.end());
        std::sort(ys.begin(), ys.end());
        for (std::size_t yj = 0; yj + 1 < ys.size(); ++yj) {
            if (!(ys[yj + 1] - ys[yj] > GEO_EPS)) continue;
            for (std::size_t xi = 0; xi + 1 < xs.size(); ++xi) {
                if (!(xs[xi + 1] - xs[xi] > GEO_EPS)) continue;
                cells.emplace_back(dielectrics[i].first,
                                   new Rectangle(xs[xi], xs[xi + 1], ys[yj + 1], ys[yj]));
            }
        }
    }
    return cells;
}

void NetManager::clip_wire(Rectangle& w, const Rectangle& win) {
    if (w.bottom < win.bottom - GEO_EPS) {
        w.set(w.left + 1e-4, w.right - 1e-4, std::max(win.bottom + 2e-4, w.top), win.bottom + 1e-4);
    } else if (w.top > win.top + GEO_EPS) {
        w.set(w.left + 1e-4, w.right - 1e-4, win.top - 1e-4, std::min(win.top - 2e-4, w.bottom));
    }
}

void NetManager::filter_pieces(std::vector<std::pair<double, Rectangle*>>& cells) {
    std::vector<std::pair<double, Rectangle*>> kept;
    kept.reserve(cells.size());
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const Rectangle& a = *cells[i].second;
        bool covered = false;
        for (std::size_t j = i + 1; j < cells.size() && !covered; ++j) {
            const Rectangle& b = *cells[j].second;
            covered = b.right - a.left > GEO_EPS && a.right - b.left > GEO_EPS &&
                      b.top - a.bottom > GEO_EPS && a.top - b.bottom > GEO_EPS;
        }
        if (covered)
            delete cells[i].second;
        else
            kept.push_back(cells[i]);
    }
    cells.swap(kept);
}

void NetManager::finish_media() {
    if (boundary == 1) {
        media.mirror_medium();
        const double w = window->width(), h = window->height();
        delete outer_window;
        outer_window =
            new Rectangle(window->left - w, window->right + w, window->top + h, window->bottom - h);
    }
    MediumManager::merge_until_stable(media.layer.media);
    MediumManager::merge_until_stable(media.mirror_layer.media);
    Debugger::log("Medium Manager Info: Layer ", media.layer.raw_z.size(), "/",
                  media.mirror_layer.raw_z.size(), " Nonlayer ", media.layer.media.size(), "/",
                  media.mirror_layer.media.size());
}

void NetManager::finish_nets() {
    max_radius = std::max(window->width(), window->height());
    if (nets.empty()) Debugger::raise_error("parser error: nets empty");
    Debugger::log("master conductor: ", master->name);
    master->build_gauss_surface(nets, window, 0.0, boundary == 1);

    const Rectangle& g = *master->gauss;
    const double w = g.width(), h = g.height(), P = 2 * (w + h);
    sampler = std::make_unique<GaussSampler>();
    sampler->count = 4;
    sampler->cdf = {0.0, w / P, 2 * w / P, 2 * w / P + h / P};

    win_ = {window->left, window->right, window->bottom, window->top};
    if (outer_window)
        outer_ = {outer_window->left, outer_window->right, outer_window->bottom, outer_window->top};
    index_nets();
}

void NetManager::index_nets() {
    boxes_.clear();
    boxes_.reserve(nets.size());
    all_rectangles_ = true;
    for (WireNet* n : nets) {
        const Shape* s = n->shape;
        boxes_.push_back({s->box_left, s->box_right, s->box_bottom, s->box_top,
                          s->kind == Shape::KIND_RECTANGLE ? nullptr : s, n});
        all_rectangles_ = all_rectangles_ && s->kind == Shape::KIND_RECTANGLE;
    }
    const std::size_t padded = (boxes_.size() + 3) / 4 * 4;
    const double inf = std::numeric_limits<double>::infinity();
    side_left_.assign(padded, inf);
    side_bottom_.assign(padded, inf);
    side_right_.assign(padded, -inf);
    side_top_.assign(padded, -inf);
    for (std::size_t i = 0; i < boxes_.size(); ++i) {
        side_left_[i] = boxes_[i].left;
        side_right_[i] = boxes_[i].right;
        side_bottom_[i] = boxes_[i].bottom;
        side_top_[i] = boxes_[i].top;
    }
    if (grid_ready_) build_grid_index();
    build_cell_index();
}

void NetManager::set_cell_index(int policy) {
    cell_policy_ = policy;
    build_cell_index();
}

double NetManager::mean_cell_candidates() const {
    if (!cells_ready_ || list_start_.size() < 2) return 0.0;
    return static_cast<double>(list_items_.size()) / static_cast<double>(list_start_.size() - 1);
}

// ---------------------------------------------------------------------------------------------
// Cell index of the box mode

void NetManager::CellAxis::build(double lo, double hi, double core_lo, double core_hi,
                                 double step) {
    edges.clear();
    core_lo = std::clamp(core_lo, lo, hi);
    core_hi = std::clamp(core_hi, core_lo, hi);
    const int n = static_cast<int>(std::clamp(std::ceil((core_hi - core_lo) / step), 1.0, 2048.0));
    const double h = (core_hi - core_lo) / n;
    // Far from the wires the nearest distance is large, so cells may grow with it.
    std::vector<double> below;
    for (double e = core_lo, g = h; e > lo;) {
        e -= g;
        g *= 2;
        below.push_back(e - g / 2 > lo ? e : lo);
        if (below.back() == lo) break;
    }
    edges.assign(below.rbegin(), below.rend());
    for (int k = 0; k <= n; ++k) edges.push_back(k == n ? core_hi : core_lo + k * h);
    for (double e = core_hi, g = h; e < hi;) {
        e += g;
        g *= 2;
        edges.push_back(e + g / 2 < hi ? e : hi);
        if (edges.back() == hi) break;
    }
    // Drop empty or reversed cells (a core touching the window, a zero-width core).
    std::size_t w = 1;
    for (std::size_t k = 1; k < edges.size(); ++k)
        if (edges[k] > edges[w - 1]) edges[w++] = edges[k];
    edges.resize(w);
    if (edges.size() < 2) edges = {lo, std::max(hi, lo + GEO_EPS)};

    const double span = edges.back() - edges.front();
    const double bin = std::max(h > 0 ? h : span, span / 16384.0);
    const int nb = static_cast<int>(std::clamp(std::ceil(span / bin), 1.0, 16384.0));
    origin = edges.front();
    inv_bin = nb / span;
    bins.assign(nb, 0);
    int c = 0;
    const int cells = static_cast<int>(edges.size()) - 1;
    for (int b = 0; b < nb; ++b) {
        const double v = origin + b / inv_bin;
        while (c + 1 < cells && edges[c + 1] <= v) ++c;
        bins[b] = c;
    }
}

inline int NetManager::CellAxis::locate(double v) const noexcept {
    const int nb = static_cast<int>(bins.size());
    const int b = std::clamp(static_cast<int>((v - origin) * inv_bin), 0, nb - 1);
    int c = bins[b];
    const int last = static_cast<int>(edges.size()) - 2;
    while (c < last && v > edges[c + 1]) ++c;
    while (c > 0 && v < edges[c]) --c;
    return c;
}

void NetManager::build_cell_index() {
    cells_ready_ = false;
    list_start_.clear();
    list_items_.clear();
    // Below a dozen nets the branch-free scan of all of them is as fast as a cell list.
    constexpr std::size_t MIN_INDEXED_NETS = 12;
    if (cell_policy_ == 0 || (cell_policy_ < 0 && boxes_.size() < MIN_INDEXED_NETS)) return;
    if (!all_rectangles_ || !window) return;
    const Bounds& w = win_;
    if (!(w.right > w.left && w.top > w.bottom)) return;

    // The fine core spans the wires; plates as wide (tall) as half the window do not widen it.
    Bounds core{INF, -INF, INF, -INF};
    for (const NetBox& b : boxes_) {
        if (b.right - b.left <= 0.5 * (w.right - w.left)) {
            core.left = std::min(core.left, b.left);
            core.right = std::max(core.right, b.right);
        }
        if (b.top - b.bottom <= 0.5 * (w.top - w.bottom)) {
            core.bottom = std::min(core.bottom, b.bottom);
            core.top = std::max(core.top, b.top);
        }
    }
    if (core.left > core.right) core.left = w.left, core.right = w.right;
    if (core.bottom > core.top) core.bottom = w.bottom, core.top = w.top;
    const double cw = std::max(core.right - core.left, 0.0),
                 ch = std::max(core.top - core.bottom, 0.0);
    // About sixteen cells per net over the core keeps the lists short near the wires.
    const double target = std::clamp(16.0 * static_cast<double>(boxes_.size()), 64.0, 8192.0);
    double step = std::sqrt(std::max(cw * ch, 1e-300) / target);
    if (!(step > 0) || cw < step || ch < step)
        step = std::max(std::max(cw, ch) / std::sqrt(target), GEO_EPS);
    cx_.build(w.left, w.right, core.left, core.right, step);
    cy_.build(w.bottom, w.top, core.bottom, core.top, step);

    const int nx = static_cast<int>(cx_.edges.size()) - 1,
              ny = static_cast<int>(cy_.edges.size()) - 1;
    list_start_.assign(static_cast<std::size_t>(nx) * ny + 1, 0);
    list_items_.reserve(static_cast<std::size_t>(nx) * ny * 4);
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            const double cl = cx_.edges[i], cr = cx_.edges[i + 1], cb = cy_.edges[j],
                         ct = cy_.edges[j + 1];
            // u: no point of the cell is farther than u from its nearest net (each term of the
            // distance is largest at one side of the cell). A net nearer than u to the whole cell
            // can win, tie or touch somewhere in it; the others cannot. The same subtractions as
            // the query keep the bounds exact under rounding.
            double u = INF;
            for (const NetBox& b : boxes_)
                u = std::min(u, std::max(std::max(ct - b.top, cr - b.right),
                                         std::max(b.bottom - cb, b.left - cl)));
            const double limit = std::max(u, GEO_EPS);
            for (std::size_t k = 0; k < boxes_.size(); ++k) {
                const NetBox& b = boxes_[k];
                const double low = std::max(std::max(cb - b.top, cl - b.right),
                                            std::max(b.bottom - ct, b.left - cr));
                if (low <= limit) list_items_.push_back(static_cast<std::int32_t>(k));
            }
            list_start_[static_cast<std::size_t>(j) * nx + i + 1] =
                static_cast<std::int32_t>(list_items_.size());
        }
    }
    cells_ready_ = true;
}

// ---------------------------------------------------------------------------------------------
// Grid

void NetManager::preprocess() {
    if (nets.empty()) return;
    Bounds wb{INF, -INF, INF, -INF};
    double s = INF;
    for (const WireNet* n : nets) {
        const Shape& sh = *n->shape;
        wb.left = std::min(wb.left, sh.box_left);
        wb.right = std::max(wb.right, sh.box_right);
        wb.bottom = std::min(wb.bottom, sh.box_bottom);
        wb.top = std::max(wb.top, sh.box_top);
        s = std::min({s, sh.box_right - sh.box_left, sh.box_top - sh.box_bottom});
    }
    if (space.neighbor_mode != NEIGHBOR_GRID) return;

    delete wire_window;
    wire_window = new Rectangle(wb.left, wb.right, wb.top, wb.bottom);
    const Rectangle& g = *master->gauss;
    const double e = s / 2;
    const double nl = std::max(window->left, std::min(g.left, wb.left) - e);
    const double nr = std::min(window->right, std::max(g.right, wb.right) + e);
    const double nb = std::max(window->bottom, std::min(g.bottom, wb.bottom) - e);
    const double nt = std::min(window->top, std::max(g.top, wb.top) + e);
    delete neighbor_window;
    neighbor_window = new Rectangle(nl, nr, nt, nb);

    // The smallest side is the natural block; thin sheets (clipped plates) could make that grid
    // absurdly large, so the block grows until the cell count is bounded.
    double block = s;
    const double cells =
        (std::max(nr - nl, 0.0) / block + 1) * (std::max(nt - nb, 0.0) / block + 1);
    if (!(block > 0) || cells > MAX_GRID_CELLS) {
        block = std::max(
            std::sqrt(std::max(nr - nl, GEO_EPS) * std::max(nt - nb, GEO_EPS) / MAX_GRID_CELLS),
            2 * s);
        while ((std::max(nr - nl, 0.0) / block + 1) * (std::max(nt - nb, 0.0) / block + 1) >
               MAX_GRID_CELLS)
            block *= 1.25;
    }
    space.block_x = space.block_y = block;
    grid_nx = static_cast<std::int32_t>(std::max(nr - nl, 0.0) / block + 1);
    grid_ny = static_cast<std::int32_t>(std::max(nt - nb, 0.0) / block + 1);
    grid.assign(static_cast<std::size_t>(grid_nx) * grid_ny, {});

    const auto cell_of = [block](double v, double origin, std::int32_t n) {
        const double t = (v - origin) / block;
        if (!(t > 0)) return 0;
        return static_cast<int>(std::min<double>(t, n - 1));
    };
    std::size_t entries = 0;
    for (WireNet* n : nets) {
        const Shape& sh = *n->shape;
        const int i0 = cell_of(sh.box_left, nl, grid_nx), i1 = cell_of(sh.box_right, nl, grid_nx);
        const int j0 = cell_of(sh.box_bottom, nb, grid_ny), j1 = cell_of(sh.box_top, nb, grid_ny);
        for (int j = j0; j <= j1; ++j) {
            for (int i = i0; i <= i1; ++i) {
                if (sh.kind == Shape::KIND_TRAPEZOID) {
                    const Rectangle cell(nl + i * block, nl + (i + 1) * block, nb + (j + 1) * block,
                                         nb + j * block);
                    if (!sh.overlap(&cell)) continue;
                }
                grid[static_cast<std::size_t>(j) * grid_nx + i].push_back(n);
                ++entries;
            }
        }
    }
    Debugger::log("GRID: ", grid_nx, "x", grid_ny);
    Debugger::log("block size: ", block, "x", block);
    Debugger::log("wire window: ", rect_text(*wire_window));
    Debugger::log("neighbor window: ", rect_text(*neighbor_window));
    Debugger::log("redundancy: ", static_cast<double>(entries) / static_cast<double>(nets.size()));

    nw_ = {nl, nr, nb, nt};
    ww_ = wb;
    grid_ready_ = true;
    index_nets();
}

void NetManager::build_grid_index() {
    cell_start_.assign(grid.size() + 1, 0);
    cell_items_.clear();
    for (std::size_t c = 0; c < grid.size(); ++c) {
        for (const WireNet* n : grid[c]) {
            const auto it = std::find_if(boxes_.begin(), boxes_.end(),
                                         [n](const NetBox& b) { return b.net == n; });
            cell_items_.push_back(static_cast<std::int32_t>(it - boxes_.begin()));
        }
        cell_start_[c + 1] = static_cast<std::int32_t>(cell_items_.size());
    }
}

// ---------------------------------------------------------------------------------------------
// Nearest-conductor query: the walk's innermost call. Flat boxes, rectangles inline, the
// virtual distance only for other shapes.

namespace {

// Tries one net against the current radius. Returns true when p touches it (r set to 0).
template <class Box>
inline bool consider(const Box& b, const Vector2D& p, WireNet*& hit, double& r) {
    const double d = chebyshev(b, p);
    if (d >= r) return false;  // its bounding box is no nearer than r
    if (b.virt == nullptr) {
        r = d;
        hit = b.net;
    } else {
        const double dv = b.virt->distance(p);
        if (r > dv) {
            r = dv;
            hit = b.net;
        }
    }
    if (r < GEO_EPS) {
        r = 0.0;
        return true;
    }
    return false;
}

// Starts from the last net hit: its signed distance bounds r. Returns true when p touches it.
inline bool start_from_last(const WireNet* last, const Vector2D& p, WireNet*& hit, double& r) {
    const Shape* s = last->shape;
    r = s->kind == Shape::KIND_RECTANGLE ? s->box_distance(p) : s->distance(p);
    hit = const_cast<WireNet*>(last);
    if (r < GEO_EPS) {
        r = 0.0;
        return true;
    }
    return false;
}

}  // namespace

NeighborResult NetManager::neighbor(const Vector2D& p, WireNet*& hit, double& r, WireNet* last,
                                    bool /*first*/) const {
    r = max_radius;
    hit = nullptr;
    switch (space.neighbor_mode) {
        case NEIGHBOR_BOX:
            if (last && start_from_last(last, p, hit, r)) return NeighborResult::Absorbed;
            if (scan_cells(p, hit, r) == NeighborResult::Absorbed) return NeighborResult::Absorbed;
            break;
        case NEIGHBOR_GRID:
            if (last && start_from_last(last, p, hit, r)) return NeighborResult::Absorbed;
            if (scan_grid(p, hit, r) == NeighborResult::Absorbed) return NeighborResult::Absorbed;
            break;
        case NEIGHBOR_SCAN:
            if (classify_all(p, hit, r) == NeighborResult::Absorbed)
                return NeighborResult::Absorbed;
            break;
        default:
            Debugger::raise_error("not implemented");
    }
    return boundary_step(p, hit, r);
}

std::ptrdiff_t NetManager::nearest_box(const Vector2D& p, double& r) const {
    const std::size_t n = side_left_.size();
    const double *L = side_left_.data(), *R = side_right_.data(), *B = side_bottom_.data(),
                 *T = side_top_.data();
    std::ptrdiff_t at = -1;
#if defined(__AVX2__)
    // Lane j keeps the first minimum among boxes j, j + 4, ...; the lanes' minima then merge,
    // equal distances to the lower index, as the scalar loop's strict comparison would.
    const __m256d x = _mm256_set1_pd(p.x), y = _mm256_set1_pd(p.y);
    __m256d best = _mm256_set1_pd(r), best_i = _mm256_set1_pd(-1.0);
    __m256d idx = _mm256_setr_pd(0, 1, 2, 3);
    const __m256d four = _mm256_set1_pd(4.0);
    for (std::size_t i = 0; i < n; i += 4) {
        const __m256d d = _mm256_max_pd(_mm256_max_pd(_mm256_sub_pd(y, _mm256_loadu_pd(T + i)),
                                                      _mm256_sub_pd(x, _mm256_loadu_pd(R + i))),
                                        _mm256_max_pd(_mm256_sub_pd(_mm256_loadu_pd(B + i), y),
                                                      _mm256_sub_pd(_mm256_loadu_pd(L + i), x)));
        const __m256d nearer = _mm256_cmp_pd(d, best, _CMP_LT_OQ);
        best = _mm256_blendv_pd(best, d, nearer);
        best_i = _mm256_blendv_pd(best_i, idx, nearer);
        idx = _mm256_add_pd(idx, four);
    }
    alignas(32) double bd[4], bi[4];
    _mm256_store_pd(bd, best);
    _mm256_store_pd(bi, best_i);
    for (int j = 0; j < 4; ++j) {
        if (bi[j] < 0) continue;
        const auto k = static_cast<std::ptrdiff_t>(bi[j]);
        if (bd[j] < r || (bd[j] == r && at >= 0 && k < at)) {
            r = bd[j];
            at = k;
        }
    }
#else
    for (std::size_t i = 0; i < n; ++i) {
        const double d =
            std::max(std::max(p.y - T[i], p.x - R[i]), std::max(B[i] - p.y, L[i] - p.x));
        if (d < r) {
            r = d;
            at = static_cast<std::ptrdiff_t>(i);
        }
    }
#endif
    return at;
}

NeighborResult NetManager::scan_all(const Vector2D& p, WireNet*& hit, double& r) const {
    if (all_rectangles_) {
        // Rectangles only: a branch-free running minimum (first net wins ties), then, only when p
        // touches something, the first touching net in order, which is where a scan that stops at
        // the first touch would have stopped.
        const NetBox* b = boxes_.data();
        const std::size_t n = boxes_.size();
        double best = r;
        const std::ptrdiff_t i = nearest_box(p, best);
        if (best >= GEO_EPS) {
            r = best;
            if (i >= 0) hit = b[i].net;
            return NeighborResult::Free;
        }
        for (std::size_t i = 0; i < n; ++i) {
            if (chebyshev(b[i], p) < GEO_EPS) {
                hit = b[i].net;
                r = 0.0;
                return NeighborResult::Absorbed;
            }
        }
    }
    for (const NetBox& b : boxes_)
        if (consider(b, p, hit, r)) return NeighborResult::Absorbed;
    return NeighborResult::Free;
}

NeighborResult NetManager::scan_cells(const Vector2D& p, WireNet*& hit, double& r) const {
    const CellAxis &ax = cx_, &ay = cy_;
    if (!cells_ready_ || !(p.x >= ax.edges.front() && p.x <= ax.edges.back() &&
                           p.y >= ay.edges.front() && p.y <= ay.edges.back()))
        return scan_all(p, hit, r);
    const std::size_t c = static_cast<std::size_t>(ay.locate(p.y)) * (ax.edges.size() - 1) +
                          static_cast<std::size_t>(ax.locate(p.x));
    const std::int32_t* first = list_items_.data() + list_start_[c];
    const std::int32_t* end = list_items_.data() + list_start_[c + 1];
    const NetBox* b = boxes_.data();
    // The full scan's rectangle loop over the cell's list: same comparisons, same order.
    double best = r;
    WireNet* best_net = hit;
    for (const std::int32_t* k = first; k != end; ++k) {
        const double d = chebyshev(b[*k], p);
        const bool nearer = d < best;
        best = nearer ? d : best;
        best_net = nearer ? b[*k].net : best_net;
    }
    if (best >= GEO_EPS) {
        r = best;
        hit = best_net;
        return NeighborResult::Free;
    }
    for (const std::int32_t* k = first; k != end; ++k) {
        if (chebyshev(b[*k], p) < GEO_EPS) {
            hit = b[*k].net;
            r = 0.0;
            return NeighborResult::Absorbed;
        }
    }
    return scan_all(p, hit, r);  // a starting radius below the geometric zero: nothing to index
}

NeighborResult NetManager::classify_all(const Vector2D& p, WireNet*& hit, double& r) const {
    for (const NetBox& b : boxes_) {
        double d;
        int side;
        if (b.virt == nullptr) {
            const double s = chebyshev(b, p);
            side = s < -GEO_EPS ? SIDE_INSIDE : (s > GEO_EPS ? SIDE_OUTSIDE : SIDE_BOUNDARY);
            d = s < 0 ? -s : s;
        } else {
            side = b.virt->distance(p, d);
        }
        if (side == SIDE_INSIDE) Debugger::raise_error("Point inside some net.");
        if (side == SIDE_BOUNDARY) {
            hit = b.net;
            r = 0.0;
            return NeighborResult::Absorbed;
        }
        if (r > d) {
            r = d;
            hit = b.net;
        }
    }
    return NeighborResult::Free;
}

NeighborResult NetManager::scan_grid(const Vector2D& p, WireNet*& hit, double& r) const {
    if (!grid_ready_) return scan_all(p, hit, r);  // no grid built: same answer, slower
    if (chebyshev(nw_, p) > 0) {
        // Outside the grid every net lies within the wire window.
        r = chebyshev(ww_, p);
        hit = nullptr;
        return NeighborResult::Free;
    }
    const double bx = space.block_x, by = space.block_y;
    const int nx = grid_nx, ny = grid_ny;
    const int ix = std::clamp(static_cast<int>((p.x - nw_.left) / bx), 0, nx - 1);
    const int iy = std::clamp(static_cast<int>((p.y - nw_.bottom) / by), 0, ny - 1);
    const int i0 = std::max(ix - 1, 0), i1 = std::min(ix + 1, nx - 1);
    const int j0 = std::max(iy - 1, 0), j1 = std::min(iy + 1, ny - 1);
    // Only block sides with cells behind them limit the free square: beyond the grid's own edges
    // there are no nets.
    double c = INF;
    if (ix > 1) c = std::min(c, p.x - (nw_.left + i0 * bx));
    if (i1 < nx - 1) c = std::min(c, nw_.left + (i1 + 1) * bx - p.x);
    if (iy > 1) c = std::min(c, p.y - (nw_.bottom + j0 * by));
    if (j1 < ny - 1) c = std::min(c, nw_.bottom + (j1 + 1) * by - p.y);
    if (r > c) {
        r = c;
        hit = nullptr;
    }
    const std::int32_t* start = cell_start_.data();
    const std::int32_t* items = cell_items_.data();
    const NetBox* boxes = boxes_.data();
    for (int j = j0; j <= j1; ++j) {
        const int row = j * nx;
        for (int k = start[row + i0], e = start[row + i1 + 1]; k < e; ++k)
            if (consider(boxes[items[k]], p, hit, r)) return NeighborResult::Absorbed;
    }
    return NeighborResult::Free;
}

NeighborResult NetManager::boundary_step(const Vector2D& p, WireNet*& hit, double& r) const {
    const double c = boundary == 0 ? -chebyshev(win_, p) : -OUTER_GUARD - chebyshev(outer_, p);
    if (r > c) {
        r = c;
        hit = nullptr;
        if (c < GEO_EPS) {
            r = 0.0;
            return NeighborResult::Absorbed;
        }
    }
    return NeighborResult::Free;
}

// ---------------------------------------------------------------------------------------------
// Symmetry and the approximate piece operations

void NetManager::symmetry_test() {
    symmetric = false;
    if (!master) return;
    const double mx = master->shape->center().x;
    if (std::abs(mx - window->center().x) > 0.001) return;
    for (std::size_t i = 0; i < nets.size(); ++i) {
        WireNet* a = nets[i];
        if (a->is_master || a->partner) continue;
        const Vector2D ca = a->shape->center();
        if (std::abs(ca.x - mx) <= 0.001) continue;  // on the axis: its own image
        const double aw = a->shape->box_right - a->shape->box_left,
                     ah = a->shape->box_top - a->shape->box_bottom;
        WireNet* found = nullptr;
        for (std::size_t j = i + 1; j < nets.size() && !found; ++j) {
            WireNet* b = nets[j];
            if (b->is_master || b->partner || b->shape->kind != a->shape->kind) continue;
            const Vector2D cb = b->shape->center();
            const double bw = b->shape->box_right - b->shape->box_left,
                         bh = b->shape->box_top - b->shape->box_bottom;
            // Sizes are compared after truncation of their difference to a whole number.
            if (std::abs(cb.y - ca.y) < 0.001 && std::abs(cb.x - (2 * mx - ca.x)) < 0.001 &&
                static_cast<long>(aw - bw) == 0 && static_cast<long>(ah - bh) == 0)
                found = b;
        }
        if (!found) return;
        a->partner = found;
        found->partner = a;
    }
    symmetric = true;
}

void NetManager::mirror_medium() {
    const double xs[3] = {0.0, window->left, window->right};
    const double ys[3] = {0.0, window->bottom, window->top};
    const std::size_t n = pieces.size();
    pieces.reserve(n * 9);
    for (std::size_t k = 0; k < n; ++k) {
        const double e = pieces[k].first;
        const Rectangle r = *pieces[k].second;
        for (int ix = 0; ix < 3; ++ix) {
            for (int iy = 0; iy < 3; ++iy) {
                if (ix == 0 && iy == 0) continue;
                double l = r.left, rt = r.right, b = r.bottom, t = r.top;
                if (ix) {
                    const double nl = 2 * xs[ix] - rt, nr = 2 * xs[ix] - l;
                    l = nl;
                    rt = nr;
                }
                if (iy) {
                    const double nb = 2 * ys[iy] - t, nt = 2 * ys[iy] - b;
                    b = nb;
                    t = nt;
                }
                pieces.emplace_back(e, new Rectangle(l, rt, t, b));
            }
        }
    }
}

bool NetManager::merge_medium(bool along_x, bool coarse) {
    const double Q = coarse ? 200.0 : 1e8;
    using Key = std::pair<long long, long long>;
    std::map<Key, std::vector<std::pair<double, Rectangle*>>> groups;
    for (auto& pc : pieces) {
        const Rectangle& r = *pc.second;
        const Key k = along_x ? Key{std::llround(Q * r.bottom), std::llround(Q * r.top)}
                              : Key{std::llround(Q * r.left), std::llround(Q * r.right)};
        groups[k].push_back(pc);
    }
    const double extent = along_x ? window->width() : window->height();
    std::vector<std::pair<double, Rectangle*>> out;
    out.reserve(pieces.size());
    for (auto& [key, g] : groups) {
        std::stable_sort(g.begin(), g.end(), [along_x](const auto& a, const auto& b) {
            return along_x ? a.second->left < b.second->left : a.second->bottom < b.second->bottom;
        });
        std::size_t first_of_group = out.size();
        for (auto& pc : g) {
            if (out.size() > first_of_group) {
                auto& prev = out.back();
                Rectangle& pr = *prev.second;
                const Rectangle& mr = *pc.second;
                const bool touch = along_x ? std::abs(pr.right - mr.left) < GEO_EPS
                                           : std::abs(pr.top - mr.bottom) < GEO_EPS;
                if (touch) {
                    const double a = along_x ? pr.width() : pr.height();
                    const double b = along_x ? mr.width() : mr.height();
                    const double ea = prev.first, eb = pc.first;
                    const double e =
                        (a + b) / (a / ea + b / eb);  // series permittivity along the direction
                    const double err = (std::abs(e - ea) * a + std::abs(e - eb) * b) / extent;
                    if (err < approx.merge_tolerance && e > -1e9) {
                        pr.set(pr.left, mr.right, mr.top, pr.bottom);
                        prev.first = e;
                        delete pc.second;
                        continue;
                    }
                }
            }
            out.push_back(pc);
        }
    }
    const bool changed = out.size() != pieces.size();
    pieces.swap(out);
    return changed;
}

}  // namespace RW2D
