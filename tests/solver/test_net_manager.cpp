// Conductor nets: construction steps, Gaussian surface, grid, symmetry, and the nearest-conductor
// query checked against a brute-force reference.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "solver/config.h"
#include "solver/net_manager.h"

// ---- Allocation counter for the whole test binary: counts every operator new while armed. ----
// Not under AddressSanitizer, whose own operators check new/delete pairing for every solver test.
#if defined(__SANITIZE_ADDRESS__)
#define KARVEN_COUNT_ALLOCS 0
#else
#define KARVEN_COUNT_ALLOCS 1
#endif
// The library's nothrow, array and sized forms all reach these.
namespace {
std::atomic<bool> g_count_allocs{false};
std::atomic<long> g_allocs{0};
#if KARVEN_COUNT_ALLOCS
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
using karven_test::run_in_child;

namespace {

Config::SpaceArgs space_args(bool neumann, std::uint32_t mode) {
    Config::SpaceArgs s;
    s.neumann_walls = neumann;
    s.neighbor_mode = mode;
    return s;
}

Rectangle rect(double x0, double y0, double x1, double y1) {
    return Rectangle(x0, x1, y1, y0);
}

void expect_rect(const Rectangle& r, double x0, double y0, double x1, double y1,
                 double tol = 1e-12) {
    EXPECT_NEAR(r.left, x0, tol);
    EXPECT_NEAR(r.bottom, y0, tol);
    EXPECT_NEAR(r.right, x1, tol);
    EXPECT_NEAR(r.top, y1, tol);
}

// The six wires of a three-level random-like cross-section (master first), and its window.
std::vector<Rectangle> random_like_wires() {
    return {rect(-0.03, 0.35, 0.03, 0.5), rect(0.09, 0.35, 0.21, 0.5), rect(-0.4, 0.35, -0.2, 0.5),
            rect(-0.12, 0.72, 0.12, 0.9), rect(0.35, 0.72, 0.5, 0.9),  rect(-0.6, 1.2, 0.6, 1.5)};
}
const Rectangle kRandomWindow = rect(-6, 0, 6, 9);
const std::vector<std::array<double, 2>> kRandomLayers = {
    {0, 4.0}, {0.3, 2.9}, {0.65, 7.5}, {0.67, 2.9}, {1.1, 7.5}, {1.12, 2.6}, {1.9, 1.0}};

// Brute-force reference of the query: nearest net by Chebyshev distance (a staircase by its
// slices), then the boundary. Written from the geometry, independently of the library's loops.
struct Reference {
    int ret;
    int hit;  // net index, -1 for none
    double r;
};

double chebyshev(const Rectangle& b, const Vector2D& p) {
    return std::max({p.x - b.right, b.left - p.x, p.y - b.top, b.bottom - p.y});
}

double net_distance(const WireNet* n, const Vector2D& p) {
    if (n->shape->kind == Shape::KIND_RECTANGLE)
        return chebyshev(*static_cast<const Rectangle*>(n->shape), p);
    double best = 1e300;
    for (const Rectangle* s : static_cast<const Trapezoid*>(n->shape)->slices)
        best = std::min(best, chebyshev(*s, p));
    return std::max(best, 0.0);  // inside a staircase counts as touching
}

Reference reference(const NetManager& nm, const Vector2D& p) {
    Reference ref{0, -1, 1e300};
    for (std::size_t i = 0; i < nm.nets.size(); ++i) {
        const double d = net_distance(nm.nets[i], p);
        if (d < ref.r) {
            ref.r = d;
            ref.hit = static_cast<int>(i);
        }
    }
    if (ref.r < 1e-8) return {2, ref.hit, 0.0};
    const Rectangle& w = *nm.window;
    double c;
    if (nm.boundary == 0) {
        c = std::min({p.x - w.left, w.right - p.x, p.y - w.bottom, w.top - p.y});
    } else {
        const double W = w.right - w.left,
                     H = w.top - w.bottom;  // the guard sits one window beyond each side
        c = std::min(
                {p.x - (w.left - W), w.right + W - p.x, p.y - (w.bottom - H), w.top + H - p.y}) -
            0.001;
    }
    c = std::min(c, nm.max_radius);
    if (ref.r >= c) {
        if (c < 1e-8) return {2, -1, 0.0};
        return {0, -1, c};
    }
    return ref;
}

int index_of(const NetManager& nm, const WireNet* n) {
    for (std::size_t i = 0; i < nm.nets.size(); ++i)
        if (nm.nets[i] == n) return static_cast<int>(i);
    return -1;
}

struct Answer {
    int ret;
    int hit;
    double r;
};

Answer ask(const NetManager& nm, const Vector2D& p, WireNet* last = nullptr) {
    WireNet* hit = nullptr;
    double r = -1;
    const int ret = static_cast<int>(nm.neighbor(p, hit, r, last, false));
    return {ret, index_of(nm, hit), r};
}

// The query's answer at p: {return value, index of the net hit or -1, r}.
void expect_answer(const NetManager& nm, Vector2D p, Answer want, WireNet* last = nullptr) {
    const Answer a = ask(nm, p, last);
    EXPECT_EQ(a.ret, want.ret) << "at (" << p.x << ", " << p.y << ")";
    EXPECT_EQ(a.hit, want.hit) << "at (" << p.x << ", " << p.y << ")";
    EXPECT_NEAR(a.r, want.r, 1e-12) << "at (" << p.x << ", " << p.y << ")";
}

}  // namespace

// ---------------------------------------------------------------------------------------------

TEST(SolverNets, ConstructionNamesNetsMergesMediaAndBuildsSampler) {
    const NetManager nm({rect(1, 1, 4, 2), rect(6, 1, 7, 2), rect(0, -1, 10, 0)}, {{0, 3.9}},
                        {{2.0, rect(0, 0, 10, 10)}, {5.0, rect(4, 4, 6, 6)}}, rect(0, 0, 10, 10),
                        space_args(false, NEIGHBOR_BOX), Config::ApproxArgs{});
    ASSERT_EQ(nm.nets.size(), 3u);
    EXPECT_EQ(nm.nets[2]->name, "2");
    EXPECT_TRUE(nm.nets[0]->is_master && !nm.nets[1]->is_master && nm.master == nm.nets[0]);
    EXPECT_EQ(nm.outer_window, nullptr);
    EXPECT_DOUBLE_EQ(nm.max_radius, 10.0);
    expect_rect(*static_cast<Rectangle*>(nm.nets[2]->shape), 1e-4, 1e-4, 10 - 1e-4, 2e-4);

    // Pieces: 8 outer cells + the inner one. Media: rows along x join: [0,10]x[0,4], three cells of
    // the middle row (different eps in the centre), [0,10]x[6,10]; the y pass then changes nothing.
    EXPECT_EQ(nm.pieces.size(), 9u);
    EXPECT_EQ(nm.media.layer.media.size(), 5u);
    EXPECT_TRUE(nm.media.mirror_layer.media.empty());

    // Gaussian surface: the nearest other net is the plate, 1 - 2e-4 below; half of it all round.
    const double h = (1 - 2e-4) / 2;
    ASSERT_NE(nm.master->gauss, nullptr);
    expect_rect(*nm.master->gauss, 1 - h, 1 - h, 4 + h, 2 + h);
    EXPECT_EQ(nm.nets[1]->gauss, nullptr);
    // Sampler: bottom, top, left, right sides in proportion to their lengths.
    const double w = 3 + 2 * h, hh = 1 + 2 * h, P = 2 * (w + hh);
    ASSERT_EQ(nm.sampler->count, 4);
    const double want[] = {0, w / P, 2 * w / P, (2 * w + hh) / P};
    for (int k = 0; k < 4; ++k) EXPECT_DOUBLE_EQ(nm.sampler->cdf[k], want[k]) << k;

    // With reflecting walls the media are mirrored (each with its eight images) before merging.
    const NetManager mirrored({rect(1, 1, 4, 2), rect(6, 1, 7, 2)}, {{0, 3.9}},
                              {{5.0, rect(4, 4, 6, 6)}}, rect(0, 0, 10, 10),
                              space_args(true, NEIGHBOR_BOX), Config::ApproxArgs{});
    EXPECT_EQ(mirrored.media.layer.media.size(), 1u);
    EXPECT_EQ(mirrored.media.mirror_layer.media.size(), 9u);
    ASSERT_NE(mirrored.outer_window, nullptr);
    expect_rect(*mirrored.outer_window, -10, -10, 20, 20);
}

TEST(SolverNets, GaussianMarginIsHalfTheChebyshevClearance) {
    // {nets, window, reflecting walls, expected surface}
    struct Case {
        std::vector<Rectangle> nets;
        Rectangle window;
        bool neumann;
        Rectangle gauss;
    };
    const Rectangle big = rect(-5, -5, 5, 5), unit = rect(0, 0, 1, 1);
    const Case cases[] = {
        {{unit, rect(1, 0, 2, 1)}, big, true, unit},  // touching: margin 0
        // 1 right and 2 up is 2 away in the Chebyshev sense.
        {{unit, rect(2, 3, 3, 4)}, big, true, rect(-1, -1, 2, 2)},
        // Alone between reflecting walls: nothing limits the margin, it stays at 1e10.
        {{unit}, big, true, rect(-5e9, -5e9, 1 + 5e9, 1 + 5e9)},
        // Absorbing sides limit it: each in turn the nearest, 0.8 away.
        {{unit}, rect(-0.8, -5, 5, 5), false, rect(-0.4, -0.4, 1.4, 1.4)},
        {{unit}, rect(-5, -0.8, 5, 5), false, rect(-0.4, -0.4, 1.4, 1.4)},
        {{unit}, rect(-5, -5, 1.8, 5), false, rect(-0.4, -0.4, 1.4, 1.4)},
        {{unit}, rect(-5, -5, 5, 1.8), false, rect(-0.4, -0.4, 1.4, 1.4)},
    };
    for (const Case& c : cases) {
        const NetManager nm(c.nets, {{0, 1}}, {}, c.window, space_args(c.neumann, NEIGHBOR_BOX),
                            Config::ApproxArgs{});
        const Rectangle& g = c.gauss;
        expect_rect(*nm.master->gauss, g.left, g.bottom, g.right, g.top, 1e-12 * (1 + g.top));
    }
}

TEST(SolverNets, EmptyNetsAndUnknownModeAreFatal) {
    auto query = [](std::uint32_t mode, Vector2D p) {
        return [=] {
            NetManager nm({rect(0, 0, 1, 1), rect(2, 0, 3, 1)}, {{0, 1}}, {}, rect(-5, -5, 5, 5),
                          space_args(true, mode), Config::ApproxArgs{});
            WireNet* hit;
            double r;
            nm.neighbor(p, hit, r, nullptr, true);
        };
    };
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] {
             NetManager nm({}, {{0, 1}}, {}, rect(0, 0, 1, 1), space_args(true, NEIGHBOR_BOX),
                           Config::ApproxArgs{});
         },
         "parser error: nets empty"},
        {query(7, Vector2D{1.5, 0.5}), "not implemented"},
        {query(NEIGHBOR_SCAN, Vector2D{2.5, 0.5}), "Point inside some net."},
    };
    for (const auto& [fn, message] : cases)
        EXPECT_EQ(run_in_child(fn), std::make_pair(1, "\033[31m[ERROR]" + message + "\033[0m\n"));
}

TEST(SolverNets, NeighborAbsorbsOnConductorsAndOnTheAbsorbingBoundary) {
    for (std::uint32_t mode : {NEIGHBOR_SCAN, NEIGHBOR_BOX, NEIGHBOR_GRID}) {
        SCOPED_TRACE(mode);
        const bool grid = mode == NEIGHBOR_GRID;
        NetManager open({rect(1, 1, 2, 2), rect(4, 1, 5, 2)}, {{0, 1}}, {}, rect(0, 0, 10, 8),
                        space_args(false, mode), Config::ApproxArgs{});
        NetManager walls({rect(1, 1, 2, 2), rect(4, 1, 5, 2)}, {{0, 1}}, {}, rect(0, 0, 10, 8),
                         space_args(true, mode), Config::ApproxArgs{});
        open.preprocess();
        walls.preprocess();
        for (NetManager* nm : {&open, &walls}) {
            // On a conductor's side, within 1e-8 of it, and at a corner.
            expect_answer(*nm, {4, 1.5}, {2, 1, 0});
            expect_answer(*nm, {5 + 5e-9, 1.2}, {2, 1, 0});
            expect_answer(*nm, {2, 2}, {2, 0, 0});
            // Between the wires, 1 from each: the first in order is kept on a tie. The grid's
            // block side is also 1 away there, and a block side clears hit.
            expect_answer(*nm, {3, 1.5}, {0, grid ? -1 : 0, 1.0});
        }
        // A point on the window's side absorbs only when the sides absorb.
        expect_answer(open, {0, 4}, {2, -1, 0});
        if (!grid) expect_answer(walls, {0, 4}, {0, 0, 2.0});  // Chebyshev 2 to the master
        EXPECT_EQ(ask(walls, {0, 4}).ret, 0);
        // Near a side far from nets: absorbing, the side 0.5 away wins and clears hit; reflecting,
        // the guard one window out (kept 0.001 away) and the nets are much farther.
        expect_answer(open, {9.5, 7.5}, {0, -1, 0.5});
        EXPECT_LE(ask(walls, {9.5, 7.5}).r, 5.5 + 1e-12);
        EXPECT_GT(ask(walls, {9.5, 7.5}).r, 0.5);
    }
}

TEST(SolverNets, GridLayoutAndConservativeClearance) {
    // Master [1,1.5]x[1,2], neighbour [3,4]x[1,2]: smallest side 0.5; gap 1.5 gives a Gaussian
    // rectangle [0.25,2.25]x[0.25,2.75]; the grid covers the nets and that rectangle grown by 0.25,
    // clipped to the window: [0,4.25]x[0,3] -> 9 x 7 cells of 0.5.
    NetManager nm({rect(1, 1, 1.5, 2), rect(3, 1, 4, 2)}, {{0, 1}}, {}, rect(0, 0, 10, 10),
                  space_args(true, NEIGHBOR_GRID), Config::ApproxArgs{});
    nm.preprocess();
    EXPECT_EQ(nm.space.block_x, 0.5);
    EXPECT_EQ(nm.space.block_y, 0.5);
    ASSERT_EQ(nm.grid_nx, 9);
    ASSERT_EQ(nm.grid_ny, 7);
    expect_rect(*nm.wire_window, 1, 1, 4, 2);
    expect_rect(*nm.neighbor_window, 0, 0, 4.25, 3);
    for (int j = 0; j < 7; ++j) {
        for (int i = 0; i < 9; ++i) {
            const auto& cell = nm.grid[j * 9 + i];
            const bool rows = j >= 2 && j <= 4;
            const bool first = rows && i >= 2 && i <= 3, second = rows && i >= 6 && i <= 8;
            ASSERT_EQ(cell.size(), first + second) << i << "," << j;
            if (first || second) {
                EXPECT_EQ(cell[0], nm.nets[first ? 0 : 1]) << i << "," << j;
            }
        }
    }
    // (0.3, 0.2) lies in cell (0,0); its 3x3 block ends at x = 1 and y = 1, both with cells behind:
    // a free square of half side 0.7, though the master is 0.8 away (as the box mode finds).
    expect_answer(nm, {0.3, 0.2}, {0, -1, 0.7});
    expect_answer(nm, {7, 1.5}, {0, -1, 3.0});  // outside the grid: the wire window's distance
    nm.space.neighbor_mode = NEIGHBOR_BOX;
    expect_answer(nm, {0.3, 0.2}, {0, 0, 0.8});

    // A wide clearance (Gaussian rectangle [3.25,7.25]x[3.25,7.75]) puts the grid's left edge at
    // x = 3. At (3.51, 5.75), in cell (1,5), the left edge has no cells behind it and does not
    // count: the block's bottom and top, 0.75 away, limit the square (the right side is 0.99 away).
    // The same above the grid's bottom edge: (5.75, 3.51) in cell (5,1).
    NetManager wide({rect(5, 5, 5.5, 6), rect(9, 5, 10, 6)}, {{0, 1}}, {}, rect(0, 0, 20, 20),
                    space_args(true, NEIGHBOR_GRID), Config::ApproxArgs{});
    wide.preprocess();
    expect_rect(*wide.neighbor_window, 3, 3, 10.25, 8);
    expect_answer(wide, {3.51, 5.75}, {0, -1, 0.75});
    expect_answer(wide, {5.75, 3.51}, {0, -1, 0.75});
}

TEST(SolverNets, AllSearchModesAgreeWithBruteForceOnRandomPoints) {
    for (const auto& [neumann, staircase] :
         {std::pair{true, false}, {true, true}, {false, false}, {false, true}}) {
        SCOPED_TRACE(testing::Message() << "neumann=" << neumann << " staircase=" << staircase);
        std::vector<Rectangle> wires = random_like_wires();
        wires.push_back(rect(-6, -0.1, 6, 0));  // substrate plate, clipped to a sheet
        NetManager nm(wires, kRandomLayers, {}, kRandomWindow, space_args(neumann, NEIGHBOR_GRID),
                      Config::ApproxArgs{});
        if (staircase) {
            // Replace the wide top wire by a three-step staircase: the non-rectangle path of the
            // query.
            auto* stair = new Trapezoid();
            stair->add_slice(new Rectangle(-0.6, 0.6, 1.3, 1.2));
            stair->add_slice(new Rectangle(-0.5, 0.5, 1.4, 1.3));
            stair->add_slice(new Rectangle(-0.4, 0.4, 1.5, 1.4));
            delete nm.nets[5]->shape;
            nm.nets[5]->shape = stair;
        }
        nm.preprocess();
        ASSERT_GT(nm.grid_nx, 2);
        const double block = nm.space.block_x;

        std::mt19937 gen(20261122);
        std::uniform_real_distribution<double> near_x(-0.9, 0.9), near_y(0.0, 1.8), any_x(-6, 6),
            any_y(0, 9);
        std::uniform_int_distribution<int> pick(0, static_cast<int>(nm.nets.size()) - 1),
            coin(0, 3);
        int exact_grid = 0, outside_grid = 0, absorbed = 0;
        for (int k = 0; k < 4000; ++k) {
            Vector2D p;
            const int how = coin(gen);
            if (how == 0) {
                p = {any_x(gen), any_y(gen)};
            } else if (how == 3) {  // on a side of a random net's bounding box
                const Shape& s = *nm.nets[pick(gen)]->shape;
                std::uniform_real_distribution<double> t(0, 1);
                const double u = t(gen);
                p = coin(gen) < 2 ? Vector2D{coin(gen) < 2 ? s.box_left : s.box_right,
                                             s.box_bottom + u * (s.box_top - s.box_bottom)}
                                  : Vector2D{s.box_left + u * (s.box_right - s.box_left),
                                             coin(gen) < 2 ? s.box_bottom : s.box_top};
            } else {
                p = {near_x(gen), near_y(gen)};
            }
            const Reference ref = reference(nm, p);
            bool strictly_inside = false;  // in some rectangle or slice by more than 1e-8
            for (const WireNet* n : nm.nets) {
                if (n->shape->kind == Shape::KIND_RECTANGLE) {
                    strictly_inside |= n->shape->distance(p) < -1e-8;
                } else {
                    for (const Rectangle* s : static_cast<const Trapezoid*>(n->shape)->slices)
                        strictly_inside |= s->distance(p) < -1e-8;
                }
            }
            WireNet* last = coin(gen) == 0 ? nm.nets[pick(gen)] : nullptr;
            SCOPED_TRACE(testing::Message()
                         << "p=(" << p.x << "," << p.y << ") last=" << index_of(nm, last));

            nm.space.neighbor_mode = NEIGHBOR_BOX;
            const Answer box = ask(nm, p, last);
            EXPECT_EQ(box.ret, ref.ret);
            EXPECT_NEAR(box.r, ref.r, 1e-12);
            if (ref.ret == 0 && ref.hit >= 0) {
                // Chebyshev ties are common (nets sharing a bottom): the first in net order wins,
                // unless the hint is one of the tied nets.
                ASSERT_GE(box.hit, 0);
                EXPECT_NEAR(net_distance(nm.nets[box.hit], p), ref.r, 1e-12);
                if (!last) {
                    EXPECT_EQ(box.hit, ref.hit);
                }
            }
            if (ref.ret == 2) {
                EXPECT_EQ(box.hit >= 0, ref.hit >= 0);
                if (box.hit >= 0) {
                    EXPECT_LT(net_distance(nm.nets[box.hit], p), 1e-8);
                }
                ++absorbed;
            }

            if (!strictly_inside) {
                nm.space.neighbor_mode = NEIGHBOR_SCAN;
                const Answer scan = ask(nm, p, last);
                EXPECT_EQ(scan.ret, ref.ret);
                EXPECT_NEAR(scan.r, ref.r, 1e-12);
                EXPECT_EQ(scan.hit, ref.hit);  // the hint has no part in a scan
            }

            nm.space.neighbor_mode = NEIGHBOR_GRID;
            const Answer grid = ask(nm, p, last);
            if (chebyshev(*nm.neighbor_window, p) > 0) {
                // Outside the grid: the wire window's distance (all nets lie in it), no net named.
                ++outside_grid;
                EXPECT_EQ(grid.ret, ref.ret);
                if (ref.ret == 0) {
                    EXPECT_NEAR(grid.r, std::min(chebyshev(*nm.wire_window, p), ref.r), 1e-12);
                    EXPECT_EQ(grid.hit, -1);
                }
            } else if (ref.r < block || ref.ret == 2) {
                // The nearest net lies within the 3x3 block: the grid finds exactly the same
                // answer.
                ++exact_grid;
                EXPECT_EQ(grid.ret, ref.ret);
                EXPECT_NEAR(grid.r, ref.r, 1e-12);
                if (ref.hit >= 0 && ref.ret == 0) {
                    ASSERT_GE(grid.hit, 0);  // cell order is free: any of the tied nearest nets
                    EXPECT_NEAR(net_distance(nm.nets[grid.hit], p), ref.r, 1e-12);
                }
            } else {
                // Otherwise a smaller, still conductor-free square: never larger than the true one,
                // never smaller than a block (the distance to a block side with cells behind it).
                EXPECT_EQ(grid.ret, 0);
                EXPECT_LE(grid.r, ref.r + 1e-12);
                EXPECT_GE(grid.r, block - 1e-12);
                if (grid.hit >= 0) {
                    EXPECT_NEAR(net_distance(nm.nets[grid.hit], p), ref.r, 1e-12);
                    EXPECT_NEAR(grid.r, ref.r, 1e-12);
                }
            }
        }
        EXPECT_GT(absorbed, 300);  // the side points and the insides were really exercised
        EXPECT_GT(exact_grid, 1000);
        EXPECT_GT(outside_grid, 50);
    }
}

// The cell index must give bit for bit what the scan of every net gives, hint or not: the walk's
// numbers depend on it. Points are drawn where an index goes wrong: on cell edges and corners, on
// and just beside net sides and corners, inside nets, far from the wires.
TEST(SolverNets, CellIndexAnswersExactlyAsTheFullScan) {
    for (const int n : {5, 20, 40, 80}) {
        for (const bool neumann : {true, false}) {
            SCOPED_TRACE(testing::Message() << n << " wires, neumann=" << neumann);
            std::mt19937 gen(1000 + n);
            std::uniform_real_distribution<double> unit(0, 1);
            // Two metal levels of random widths and gaps (some touching, some sharing sides), the
            // master first, and a plate clipped to a sheet.
            std::vector<Rectangle> wires;
            double x[2] = {-0.1 * n, -0.1 * n};
            for (int k = 0; k < n; ++k) {
                const int lv = k % 2;
                const double w = unit(gen) < 0.2 ? 0.1 : 0.05 + 0.2 * unit(gen);
                const double gap = unit(gen) < 0.1 ? 0.0 : 0.05 + 0.3 * unit(gen);
                const double y0 = lv ? 0.8 : 0.3, y1 = lv ? 1.0 + 0.1 * unit(gen) : 0.5;
                wires.push_back(rect(x[lv] + gap, y0, x[lv] + gap + w, y1));
                x[lv] += gap + w;
            }
            const double half = std::max(x[0], x[1]) + 3;
            wires.push_back(rect(-half, -0.1, half, 0));
            NetManager nm(wires, kRandomLayers, {}, rect(-half, 0, half, 6),
                          space_args(neumann, NEIGHBOR_BOX), Config::ApproxArgs{});
            NetManager full(wires, kRandomLayers, {}, rect(-half, 0, half, 6),
                            space_args(neumann, NEIGHBOR_BOX), Config::ApproxArgs{});
            nm.set_cell_index(1);
            full.set_cell_index(0);
            ASSERT_EQ(full.mean_cell_candidates(), 0.0);
            const std::vector<double> ex = nm.cell_edges(true), ey = nm.cell_edges(false);
            ASSERT_GT(ex.size(), 8u);
            ASSERT_GT(ey.size(), 8u);

            std::uniform_int_distribution<int> pick_net(0, static_cast<int>(nm.nets.size()) - 1),
                pick_x(0, static_cast<int>(ex.size()) - 1),
                pick_y(0, static_cast<int>(ey.size()) - 1), kind(0, 5), sign(-1, 1);
            int hits = 0, touches = 0;
            for (int k = 0; k < 20000; ++k) {
                Vector2D p;
                const Shape& s = *nm.nets[pick_net(gen)]->shape;
                const double nudge = 1e-9 * sign(gen) + 1e-8 * sign(gen);
                switch (kind(gen)) {
                    case 0:  // anywhere in the window
                        p = {-half + 2 * half * unit(gen), 6 * unit(gen)};
                        break;
                    case 1:  // a cell corner
                        p = {ex[pick_x(gen)], ey[pick_y(gen)]};
                        break;
                    case 2:  // a cell edge
                        p = {ex[pick_x(gen)], 6 * unit(gen)};
                        break;
                    case 3:  // a net corner, exact or nudged by about the geometric zero
                        p = {(unit(gen) < 0.5 ? s.box_left : s.box_right) + nudge,
                             (unit(gen) < 0.5 ? s.box_bottom : s.box_top) + nudge};
                        break;
                    case 4:  // near the wires
                        p = {-half + 2 * half * unit(gen), 1.5 * unit(gen)};
                        break;
                    default:  // just off a net side
                        p = {s.box_left + unit(gen) * (s.box_right - s.box_left),
                             (unit(gen) < 0.5 ? s.box_top : s.box_bottom) +
                                 0.05 * unit(gen) * sign(gen)};
                }
                const int last = unit(gen) < 0.5 ? pick_net(gen) : -1;
                WireNet *hit_a = nullptr, *hit_b = nullptr;
                double ra = -1, rb = -2;
                const NeighborResult ret_a =
                    nm.neighbor(p, hit_a, ra, last < 0 ? nullptr : nm.nets[last], false);
                const NeighborResult ret_b =
                    full.neighbor(p, hit_b, rb, last < 0 ? nullptr : full.nets[last], false);
                ASSERT_EQ(ret_a, ret_b) << "at (" << p.x << ", " << p.y << ")";
                ASSERT_EQ(index_of(nm, hit_a), index_of(full, hit_b))
                    << "at (" << p.x << ", " << p.y << ")";
                ASSERT_EQ(ra, rb) << "at (" << p.x << ", " << p.y << ")";
                hits += hit_a != nullptr;
                touches += ret_a == NeighborResult::Absorbed && hit_a != nullptr;
            }
            EXPECT_GT(hits, 10000);
            EXPECT_GT(touches, 1000);
        }
    }
}

// The index is what makes the query's cost independent of the wire count: a cell's list stays
// short however many wires there are.
TEST(SolverNets, CellListsStayShortAndTheIndexStartsAtADozenNets) {
    auto row = [](int n) {
        std::vector<Rectangle> wires;
        for (int k = 0; k < n; ++k) wires.push_back(rect(0.2 * k, 0.3, 0.2 * k + 0.1, 0.5));
        wires.push_back(rect(-5, -0.1, 0.2 * n + 5, 0));
        return std::make_unique<NetManager>(wires, std::vector<std::array<double, 2>>{{0, 1}},
                                            std::vector<std::pair<double, Rectangle>>{},
                                            rect(-5, 0, 0.2 * n + 5, 8),
                                            space_args(true, NEIGHBOR_BOX), Config::ApproxArgs{});
    };
    EXPECT_EQ(row(5)->mean_cell_candidates(), 0.0);  // six nets: scanned
    EXPECT_GT(row(11)->mean_cell_candidates(), 0.0);
    const double at20 = row(20)->mean_cell_candidates(), at80 = row(80)->mean_cell_candidates();
    EXPECT_LT(at80, 2 * at20);
    EXPECT_LT(at80, 20.0);  // of 81 nets
    auto off = row(80);
    off->set_cell_index(0);
    EXPECT_EQ(off->mean_cell_candidates(), 0.0);
}

namespace {
// A rectangle that counts calls of its virtual distances.
struct SpyRectangle : Rectangle {
    mutable long calls = 0;
    using Rectangle::Rectangle;
    int distance(const Vector2D& p, double& d) const override {
        ++calls;
        return Rectangle::distance(p, d);
    }
    double distance(const Vector2D& p) const override {
        ++calls;
        return Rectangle::distance(p);
    }
};
}  // namespace

TEST(SolverNets, NeighborMakesNoVirtualCallForRectanglesAndAllocatesNothing) {
    for (std::uint32_t mode : {NEIGHBOR_SCAN, NEIGHBOR_BOX, NEIGHBOR_GRID}) {
        SCOPED_TRACE(mode);
        NetManager nm(random_like_wires(), kRandomLayers, {}, kRandomWindow, space_args(true, mode),
                      Config::ApproxArgs{});
        std::vector<SpyRectangle*> spies;
        for (WireNet* n : nm.nets) {
            const Rectangle r = *static_cast<Rectangle*>(n->shape);
            auto* spy = new SpyRectangle(r.left, r.right, r.top, r.bottom);
            delete n->shape;
            n->shape = spy;
            spies.push_back(spy);
        }
        nm.preprocess();
        nm.index_nets();

        std::mt19937 gen(7);
        std::uniform_real_distribution<double> ux(-1, 1), uy(0, 2);
        std::vector<Vector2D> points;
        for (int k = 0; k < 2000; ++k) points.push_back({ux(gen), uy(gen)});
        points.push_back({0.03, 0.4});  // on the master
        long sum_ret = 0;
        g_allocs = 0;
        g_count_allocs = true;
        for (const Vector2D& p : points) {
            WireNet* hit = nullptr;
            double r;
            if (mode == NEIGHBOR_SCAN) {
                bool inside = false;
                for (const SpyRectangle* s : spies) inside |= s->Rectangle::distance(p) < -1e-8;
                if (inside) continue;
            }
            sum_ret += static_cast<int>(nm.neighbor(p, hit, r, nm.nets[3], false));
        }
        g_count_allocs = false;
        if (KARVEN_COUNT_ALLOCS) {
            EXPECT_EQ(g_allocs.load(), 0);
        }
        EXPECT_GT(sum_ret, 0);  // some queries were absorbed
        long calls = 0;
        for (const SpyRectangle* s : spies) calls += s->calls;
        EXPECT_EQ(calls, 0);

        // The spy does see virtual calls when the query is told the shape is not a rectangle.
        spies[1]->kind = Shape::KIND_TRAPEZOID;
        nm.index_nets();
        WireNet* hit;
        double r;
        nm.neighbor(Vector2D{0.15, 0.55}, hit, r, nullptr, false);
        EXPECT_GT(spies[1]->calls, 0);
    }
    // The counter itself works.
    if (!KARVEN_COUNT_ALLOCS) return;
    g_allocs = 0;
    g_count_allocs = true;
    auto* probe = new std::vector<int>(3);
    g_count_allocs = false;
    EXPECT_GE(g_allocs.load(), 1);
    delete probe;
}
