// Conductor nets: construction steps, Gaussian surface, and the nearest-conductor query in every
// mode checked against a brute-force reference, with its cell index and allocations.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "solver/config.h"
#include "solver/net_manager.h"

// Counts every operator new of the test binary while armed. Not under AddressSanitizer, whose own
// operators check new/delete pairing for every solver test. The library's nothrow, array and sized
// forms all reach these.
namespace {
std::atomic<bool> g_count_allocs{false};
std::atomic<long> g_allocs{0};
#if !defined(__SANITIZE_ADDRESS__)
// Out of line, so that the compiler does not pair the inlined malloc and free with new and delete.
[[gnu::noinline]] void* counted_alloc(std::size_t n) {
    if (g_count_allocs.load(std::memory_order_relaxed))
        g_allocs.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
[[gnu::noinline]] void release(void* p) {
    std::free(p);
}
}  // namespace
void* operator new(std::size_t n) {
    return counted_alloc(n);
}
void operator delete(void* p) noexcept {
    release(p);
}
void operator delete(void* p, std::size_t) noexcept {
    release(p);
}
#else
}  // namespace
#endif

namespace karven_test {
std::pair<int, std::string> run_in_child(const std::function<void()>& fn);  // test_shapes.cpp
}

using namespace RW2D;

namespace {

Rectangle rect(double x0, double y0, double x1, double y1) {
    return Rectangle(x0, x1, y1, y0);
}

std::unique_ptr<NetManager> nets(
    const std::vector<Rectangle>& wires, const Rectangle& window, bool neumann,
    std::uint32_t mode = NEIGHBOR_BOX,
    const std::vector<std::pair<double, Rectangle>>& dielectrics = {}) {
    Config::SpaceArgs space;
    space.neumann_walls = neumann;
    space.neighbor_mode = mode;
    return std::make_unique<NetManager>(wires, std::vector<std::array<double, 2>>{{0, 3.9}},
                                        dielectrics, window, space, Config::ApproxArgs{});
}

void expect_rect(const Rectangle& r, const Rectangle& w, double tol = 1e-12) {
    const double got[] = {r.left, r.bottom, r.right, r.top},
                 want[] = {w.left, w.bottom, w.right, w.top};
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(got[k], want[k], tol) << "side " << k;
}

// {return value, index of the net hit or -1, r}
struct Answer {
    int ret, hit;
    double r;
};

// The brute-force reference of the query: nearest net by Chebyshev distance (a staircase by its
// slices), then the boundary. Written from the geometry, independently of the library's loops.
double chebyshev(const Rectangle& b, const Vector2D& p) {
    return std::max({p.x - b.right, b.left - p.x, p.y - b.top, b.bottom - p.y});
}

double net_distance(const WireNet* n, const Vector2D& p) {
    if (n->shape->kind == Shape::KIND_RECTANGLE)
        return chebyshev(*static_cast<const Rectangle*>(n->shape), p);
    double best = 1e300;
    for (const Rectangle* s : static_cast<const Trapezoid*>(n->shape)->slices)
        best = std::min(best, chebyshev(*s, p));
    return best;
}

Answer reference(const NetManager& nm, const Vector2D& p) {
    Answer ref{0, -1, 1e300};
    for (std::size_t i = 0; i < nm.nets.size(); ++i) {
        const double d = net_distance(nm.nets[i], p);
        if (d < ref.r) ref = {0, static_cast<int>(i), d};
    }
    if (ref.r < 1e-8) return {2, ref.hit, 0.0};
    // Reflecting walls: the guard lies one window beyond each side, kept 0.001 away.
    const Rectangle& w = *nm.window;
    const double W = w.right - w.left, H = w.top - w.bottom;
    double c = nm.boundary == 0
                   ? -chebyshev(w, p)
                   : -chebyshev(rect(w.left - W, w.bottom - H, w.right + W, w.top + H), p) - 0.001;
    c = std::min(c, nm.max_radius);
    if (ref.r < c) return ref;
    return c < 1e-8 ? Answer{2, -1, 0.0} : Answer{0, -1, c};
}

int index_of(const NetManager& nm, const WireNet* n) {
    for (std::size_t i = 0; i < nm.nets.size(); ++i)
        if (nm.nets[i] == n) return static_cast<int>(i);
    return -1;
}

Answer ask(const NetManager& nm, const Vector2D& p, WireNet* last = nullptr) {
    WireNet* hit = nullptr;
    double r = -1;
    g_count_allocs = true;  // the query runs at every hop: it must not allocate
    const int ret = static_cast<int>(nm.neighbor(p, hit, r, last, false));
    g_count_allocs = false;
    return {ret, index_of(nm, hit), r};
}

void expect_answer(const NetManager& nm, Vector2D p, Answer want) {
    const Answer a = ask(nm, p);
    EXPECT_EQ(a.ret, want.ret) << "at (" << p.x << ", " << p.y << ")";
    EXPECT_EQ(a.hit, want.hit) << "at (" << p.x << ", " << p.y << ")";
    EXPECT_NEAR(a.r, want.r, 1e-12) << "at (" << p.x << ", " << p.y << ")";
}

}  // namespace

TEST(SolverNets, ConstructionMergesMediaAndSizesTheGaussianSurface) {
    auto nm = nets({rect(1, 1, 4, 2), rect(6, 1, 7, 2), rect(0, -1, 10, 0)}, rect(0, 0, 10, 10),
                   false, NEIGHBOR_BOX, {{2.0, rect(0, 0, 10, 10)}, {5.0, rect(4, 4, 6, 6)}});
    EXPECT_TRUE(nm->nets[0]->is_master && !nm->nets[1]->is_master);
    EXPECT_DOUBLE_EQ(nm->max_radius, 10.0);  // the window's size
    expect_rect(*static_cast<Rectangle*>(nm->nets[2]->shape), rect(1e-4, 1e-4, 10 - 1e-4, 2e-4));
    // Pieces: 8 outer cells + the inner one. Media: rows along x join: [0,10]x[0,4], three cells of
    // the middle row (different eps in the centre), [0,10]x[6,10]; the y pass changes nothing.
    EXPECT_EQ(nm->pieces.size(), 9u);
    EXPECT_EQ(nm->media.layer.media.size(), 5u);
    // The nearest other net is the plate, 1 - 2e-4 below: half of that all round.
    const double h = (1 - 2e-4) / 2;
    expect_rect(*nm->master->gauss, rect(1 - h, 1 - h, 4 + h, 2 + h));
    EXPECT_EQ(nm->nets[1]->gauss, nullptr);
    // Sampler: bottom, top, left, right sides in proportion to their lengths.
    const double w = 3 + 2 * h, hh = 1 + 2 * h, P = 2 * (w + hh);
    ASSERT_EQ(nm->sampler->count, 4);
    const double want[] = {0, w / P, 2 * w / P, (2 * w + hh) / P};
    for (int k = 0; k < 4; ++k) EXPECT_DOUBLE_EQ(nm->sampler->cdf[k], want[k]) << k;

    // With reflecting walls the media are mirrored (each with its eight images) before merging.
    nm = nets({rect(1, 1, 4, 2), rect(6, 1, 7, 2)}, rect(0, 0, 10, 10), true, NEIGHBOR_BOX,
              {{5.0, rect(4, 4, 6, 6)}});
    EXPECT_EQ(nm->media.mirror_layer.media.size(), 9u);
    expect_rect(*nm->outer_window, rect(-10, -10, 20, 20));
}

TEST(SolverNets, GaussianMarginIsHalfTheChebyshevClearance) {
    // {nets, window, reflecting walls, Gaussian surface}
    using Case = std::tuple<std::vector<Rectangle>, Rectangle, bool, Rectangle>;
    const Rectangle big = rect(-5, -5, 5, 5), unit = rect(0, 0, 1, 1),
                    grown = rect(-0.4, -0.4, 1.4, 1.4);
    const Case cases[] = {
        {{unit, rect(1, 0, 2, 1)}, big, true, unit},  // touching: margin 0
        // 1 right and 2 up is 2 away in the Chebyshev sense.
        {{unit, rect(2, 3, 3, 4)}, big, true, rect(-1, -1, 2, 2)},
        // Alone between reflecting walls: nothing limits the margin, it stays at 1e10.
        {{unit}, big, true, rect(-5e9, -5e9, 1 + 5e9, 1 + 5e9)},
        // Absorbing sides limit it: each in turn the nearest, 0.8 away.
        {{unit}, rect(-0.8, -5, 5, 5), false, grown},
        {{unit}, rect(-5, -0.8, 5, 5), false, grown},
        {{unit}, rect(-5, -5, 1.8, 5), false, grown},
        {{unit}, rect(-5, -5, 5, 1.8), false, grown},
    };
    for (const auto& [wires, window, neumann, gauss] : cases)
        expect_rect(*nets(wires, window, neumann)->master->gauss, gauss, 1e-12 * (1 + gauss.top));
}

TEST(SolverNets, EmptyNetsUnknownModeAndScanInsideANetAreFatal) {
    auto query = [](std::uint32_t mode, Vector2D p) {
        return [=] {
            WireNet* hit;
            double r;
            nets({rect(0, 0, 1, 1), rect(2, 0, 3, 1)}, rect(-5, -5, 5, 5), true, mode)
                ->neighbor(p, hit, r, nullptr, true);
        };
    };
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { nets({}, rect(0, 0, 1, 1), true); }, "parser error: nets empty"},
        {query(7, Vector2D{1.5, 0.5}), "not implemented"},
        {query(NEIGHBOR_SCAN, Vector2D{2.5, 0.5}), "Point inside some net."},
    };
    for (const auto& [fn, message] : cases)
        EXPECT_EQ(karven_test::run_in_child(fn),
                  std::make_pair(1, "\033[31m[ERROR]" + message + "\033[0m\n"));
}

TEST(SolverNets, AbsorbingSidesOrAGuardOneWindowOutBoundTheSquare) {
    // One net in a flat window 10 x 1: far from the net, the sides are nearer. Reflecting walls put
    // the guard one window beyond each side, kept 0.001 away: from (9.5, 0.5) 1.5 up or down.
    for (const bool neumann : {false, true}) {
        auto nm = nets({rect(0, 0.2, 0.5, 0.8)}, rect(0, 0, 10, 1), neumann);
        expect_answer(*nm, {9.5, 0.5}, {0, -1, neumann ? 1.499 : 0.5});
        expect_answer(*nm, {5, 1}, neumann ? Answer{0, -1, 0.999} : Answer{2, -1, 0});
        expect_answer(*nm, {0.5, 0.5 + 5e-9}, {2, 0, 0});
        expect_answer(*nm, {0.8, 0.5}, {0, 0, 0.3});  // the net is nearer than any side
    }
}

TEST(SolverNets, GridClearanceIsConservative) {
    // Master [1,1.5]x[1,2], neighbour [3,4]x[1,2]: smallest side 0.5; gap 1.5 gives a Gaussian
    // rectangle [0.25,2.25]x[0.25,2.75]; the grid covers the nets and that rectangle grown by 0.25,
    // clipped to the window: [0,4.25]x[0,3] -> 9 x 7 cells of 0.5.
    auto nm = nets({rect(1, 1, 1.5, 2), rect(3, 1, 4, 2)}, rect(0, 0, 10, 10), true, NEIGHBOR_GRID);
    nm->preprocess();
    EXPECT_EQ(nm->grid_nx * 10 + nm->grid_ny, 97);
    expect_rect(*nm->neighbor_window, rect(0, 0, 4.25, 3));
    // (0.3, 0.2) lies in cell (0,0); its 3x3 block ends at x = 1 and y = 1, both with cells behind:
    // a free square of half side 0.7, though the master is 0.8 away (as the box mode finds).
    expect_answer(*nm, {0.3, 0.2}, {0, -1, 0.7});
    expect_answer(*nm, {7, 1.5}, {0, -1, 3.0});  // outside the grid: the wire window's distance
    nm->space.neighbor_mode = NEIGHBOR_BOX;
    expect_answer(*nm, {0.3, 0.2}, {0, 0, 0.8});
}

// Every mode against the reference, at points where a query goes wrong: on and just beside net
// sides and corners, on cell edges, inside nets, far from the wires. The cell index must give bit
// for bit what the scan of every net gives, hint or not: the walk's numbers depend on it. No query
// allocates.
TEST(SolverNets, AllModesAgreeWithBruteForceAndTheIndexWithTheFullScan) {
    // {wires in two levels (0: a three-level random-like cross-section), reflecting, staircase}
    const std::tuple<int, bool, bool> setups[] = {{0, true, false},  {0, true, true},
                                                  {0, false, false}, {0, false, true},
                                                  {20, true, false}, {60, false, false}};
    int exact_grid = 0, outside_grid = 0, absorbed = 0;
    g_allocs = 0;
    for (const auto& [n_wires, neumann, staircase] : setups) {
        SCOPED_TRACE(testing::Message() << n_wires << " wires " << neumann << staircase);
        std::mt19937 gen(1000 + n_wires + neumann);
        std::uniform_real_distribution<double> unit(0, 1);
        std::vector<Rectangle> wires = {rect(-0.03, 0.35, 0.03, 0.5), rect(0.09, 0.35, 0.21, 0.5),
                                        rect(-0.4, 0.35, -0.2, 0.5),  rect(-0.12, 0.72, 0.12, 0.9),
                                        rect(0.35, 0.72, 0.5, 0.9),   rect(-0.6, 1.2, 0.6, 1.5)};
        double half = 6, top = 9;
        if (n_wires > 0) {
            // Random widths and gaps (some touching, some sharing sides), the master first.
            wires.clear();
            double x[2] = {-0.1 * n_wires, -0.1 * n_wires};
            for (int k = 0; k < n_wires; ++k) {
                const int lv = k % 2;
                const double w = unit(gen) < 0.2 ? 0.1 : 0.05 + 0.2 * unit(gen);
                const double gap = unit(gen) < 0.1 ? 0.0 : 0.05 + 0.3 * unit(gen);
                const double y0 = lv ? 0.8 : 0.3, y1 = lv ? 1.0 + 0.1 * unit(gen) : 0.5;
                wires.push_back(rect(x[lv] + gap, y0, x[lv] + gap + w, y1));
                x[lv] += gap + w;
            }
            half = std::max(x[0], x[1]) + 3, top = 6;
        }
        wires.push_back(rect(-half, -0.1, half, 0));  // the plate, clipped to a sheet
        auto nm = nets(wires, rect(-half, 0, half, top), neumann, NEIGHBOR_GRID);
        auto full = nets(wires, rect(-half, 0, half, top), neumann);
        full->set_cell_index(0);
        if (staircase) {
            // The wide top wire as a three-step staircase: the non-rectangle path of the query.
            auto* stair = new Trapezoid();
            for (double d : {0.0, 0.1, 0.2})
                stair->add_slice(new Rectangle(-0.6 + d, 0.6 - d, 1.3 + d, 1.2 + d));
            delete nm->nets[5]->shape;
            nm->nets[5]->shape = stair;
        }
        nm->preprocess();
        const double block = nm->space.block_x;
        const std::vector<double> ex = nm->cell_edges(true), ey = nm->cell_edges(false);
        ASSERT_EQ(ex.empty(), n_wires == 0);  // the index starts at a dozen nets
        std::uniform_int_distribution<int> pick(0, static_cast<int>(nm->nets.size()) - 1),
            kind(0, 6), sign(-1, 1);
        for (int k = 0; k < 5000; ++k) {
            const Shape& s = *nm->nets[pick(gen)]->shape;
            const double u = unit(gen), nudge = 1e-9 * sign(gen) + 1e-8 * sign(gen);
            const bool lo = unit(gen) < 0.5, lo2 = unit(gen) < 0.5;
            Vector2D p{-half + 2 * half * u, top * unit(gen)};  // anywhere in the window
            switch (kind(gen)) {
                case 0:  // near the wires
                    p.y = 1.6 * unit(gen);
                    if (n_wires == 0) p.x = -0.9 + 1.8 * u;
                    break;
                case 1:  // on a net side
                    p = lo2 ? Vector2D{lo ? s.box_left : s.box_right,
                                       s.box_bottom + u * (s.box_top - s.box_bottom)}
                            : Vector2D{s.box_left + u * (s.box_right - s.box_left),
                                       lo ? s.box_bottom : s.box_top};
                    break;
                case 2:  // a net corner, exact or nudged by about the geometric zero
                    p = {(lo ? s.box_left : s.box_right) + nudge,
                         (lo2 ? s.box_bottom : s.box_top) + nudge};
                    break;
                case 3:  // just off a net side
                    p = {s.box_left + u * (s.box_right - s.box_left),
                         (lo ? s.box_top : s.box_bottom) + 0.05 * unit(gen) * sign(gen)};
                    break;
                case 4:  // a cell corner or a cell edge
                    if (ex.empty()) break;
                    p.x = ex[std::uniform_int_distribution<size_t>(0, ex.size() - 1)(gen)];
                    if (lo) p.y = ey[std::uniform_int_distribution<size_t>(0, ey.size() - 1)(gen)];
            }
            const Answer ref = reference(*nm, p);
            WireNet* last = unit(gen) < 0.3 ? nm->nets[pick(gen)] : nullptr;
            SCOPED_TRACE(testing::Message()
                         << "p=(" << p.x << "," << p.y << ") last=" << index_of(*nm, last));
            absorbed += ref.ret == 2;
            // The net hit is a nearest one, any within 1e-8 for a touch; `exact`: the first.
            auto expect_hit = [&](const Answer& a, bool exact) {
                EXPECT_EQ(a.hit >= 0, ref.hit >= 0);
                EXPECT_LE(a.hit >= 0 ? net_distance(nm->nets[a.hit], p) : 0.0,
                          std::max(ref.r, 1e-8) + 1e-12);
                EXPECT_TRUE(!exact || ref.ret != 0 || a.hit == ref.hit) << a.hit << " " << ref.hit;
            };

            nm->space.neighbor_mode = NEIGHBOR_BOX;
            const Answer box = ask(*nm, p, last);
            EXPECT_EQ(box.ret, ref.ret);
            EXPECT_NEAR(box.r, ref.r, 1e-12);
            // Chebyshev ties are common (nets sharing a bottom): the first in net order wins,
            // unless the hint is one of the tied nets. A boundary that wins clears the hit.
            expect_hit(box, !last);
            if (n_wires > 0) {
                const Answer scan = ask(*full, p, last ? full->nets[index_of(*nm, last)] : nullptr);
                ASSERT_EQ(box.ret, scan.ret);
                ASSERT_EQ(box.hit, scan.hit);
                ASSERT_EQ(box.r, scan.r);
            }

            bool inside = false;  // in some rectangle or slice by more than 1e-8
            for (const WireNet* n : nm->nets) inside |= net_distance(n, p) < -1e-8;
            if (!inside) {
                nm->space.neighbor_mode = NEIGHBOR_SCAN;
                const Answer scan = ask(*nm, p, last);
                EXPECT_EQ(scan.ret, ref.ret);
                EXPECT_NEAR(scan.r, ref.r, 1e-12);
                expect_hit(scan, true);  // the hint has no part in a scan
            }

            nm->space.neighbor_mode = NEIGHBOR_GRID;
            const Answer grid = ask(*nm, p, last);
            if (chebyshev(*nm->neighbor_window, p) > 0) {
                // Outside the grid: the wire window's distance (all nets lie in it), no net named.
                ++outside_grid;
                EXPECT_EQ(grid.ret, ref.ret);
                if (ref.ret == 0) {
                    EXPECT_NEAR(grid.r, std::min(chebyshev(*nm->wire_window, p), ref.r), 1e-12);
                    EXPECT_EQ(grid.hit, -1);
                }
            } else if (ref.r < block || ref.ret == 2) {
                // The nearest net lies within the 3x3 block: the grid finds the same answer, with
                // any of the tied nearest nets (cell order is free).
                ++exact_grid;
                EXPECT_EQ(grid.ret, ref.ret);
                EXPECT_NEAR(grid.r, ref.r, 1e-12);
                if (ref.hit >= 0 && ref.ret == 0) {
                    EXPECT_NEAR(net_distance(nm->nets.at(grid.hit), p), ref.r, 1e-12);
                }
            } else {
                // Otherwise a smaller, still conductor-free square: never larger than the true one,
                // never smaller than a block (the distance to a block side with cells behind it).
                EXPECT_EQ(grid.ret, 0);
                EXPECT_LE(grid.r, ref.r + 1e-12);
                EXPECT_GE(grid.r, block - 1e-12);
                EXPECT_TRUE(grid.hit < 0 || std::fabs(grid.r - ref.r) < 1e-12) << grid.r;
            }
        }
    }
    // The sides, the insides and the grid's three cases were really exercised.
    EXPECT_GT(absorbed, 5000);
    EXPECT_GT(exact_grid, 6000);
    EXPECT_GT(outside_grid, 5000);
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_EQ(g_allocs.load(), 0);
    g_count_allocs = true;
    auto probe = std::make_unique<std::vector<int>>(3);  // the counter itself counts
    g_count_allocs = false;
    EXPECT_GE(g_allocs.load(), 1);
#endif
}

// The index is what makes the query's cost independent of the wire count: a cell's list stays short
// however many wires there are.
TEST(SolverNets, CellListsStayShortAndTheIndexStartsAtADozenNets) {
    auto row = [](int n) {
        std::vector<Rectangle> wires;
        for (int k = 0; k < n; ++k) wires.push_back(rect(0.2 * k, 0.3, 0.2 * k + 0.1, 0.5));
        wires.push_back(rect(-5, -0.1, 0.2 * n + 5, 0));
        return nets(wires, rect(-5, 0, 0.2 * n + 5, 8), true)->mean_cell_candidates();
    };
    EXPECT_EQ(row(5), 0.0);  // six nets: scanned
    EXPECT_GT(row(11), 0.0);
    EXPECT_LT(row(80), 2 * row(20));
    EXPECT_LT(row(80), 20.0);  // of 81 nets
}
