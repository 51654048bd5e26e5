// Walk engine: folding at reflecting walls, start points on the Gaussian surface, absorption and
// discarding of walks, and the companion walk's start.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "solver/config.h"
#include "solver/net_manager.h"
#include "solver/online_table.h"
#include "solver/walk_manager.h"

using namespace RW2D;

namespace {

Rectangle rect(double x0, double y0, double x1, double y1) {
    return Rectangle(x0, x1, y1, y0);
}

NetManager make_nets(const std::vector<Rectangle>& wires, const Rectangle& window,
                     bool neumann = true) {
    Config c;
    c.space.neumann_walls = neumann;
    return NetManager(wires, {{0.0, 3.9}}, {}, window, c.space, c.approx);
}

Config quiet_config() {
    Config c;
    c.load_tables = false;
    return c;
}

}  // namespace

TEST(SolverWalk, RandomSourceDrawsWhatTheStandardEngineAndDistributionDraw) {
    // The walker's own twister must be indistinguishable from the library's: seeds at both ends
    // of the range, several refills, uniform draws interleaved with single bits.
    for (std::uint32_t seed : {0u, 3u, 5489u, 0xffffffffu}) {
        RandGen mine(seed);
        std::mt19937 ref(seed);
        std::uniform_real_distribution<double> u(0.0, 1.0);
        for (int k = 0; k < 3000; ++k) {
            ASSERT_EQ(mine.uniform(), u(ref)) << seed << " draw " << k;
            if (k % 3 == 0) {
                ASSERT_EQ(mine.bit(), static_cast<int>(ref() & 1u));
            }
        }
    }
    RandGen ranged(7, -2.0, 3.0);
    std::mt19937 ref(7);
    std::uniform_real_distribution<double> u(-2.0, 3.0);
    for (int k = 0; k < 100; ++k) ASSERT_EQ(ranged.uniform(), u(ref));
}

TEST(SolverWalk, NeumannReflectFoldsLikeATriangleWave) {
    EXPECT_EQ(neumann_reflect(0, 0.25, 1), 0.25);
    EXPECT_EQ(neumann_reflect(0, 0.0, 1), 0.0);  // on a wall: stays there
    EXPECT_EQ(neumann_reflect(0, 1.0, 1), 1.0);
    EXPECT_NEAR(neumann_reflect(0, 1.3, 1), 0.7, 1e-12);
    EXPECT_NEAR(neumann_reflect(0, -0.3, 1), 0.3, 1e-12);
    EXPECT_NEAR(neumann_reflect(0, 2.3, 1), 0.3, 1e-12);  // crossed two walls
    EXPECT_NEAR(neumann_reflect(0, -1.2, 1), 0.8, 1e-12);
    EXPECT_NEAR(neumann_reflect(-5, 7.5, 5), 2.5, 1e-12);  // 2.5 past the right wall
}

TEST(SolverWalk, StartPointsLieOnTheGaussianSidesInProportionToTheirLength) {
    // Master 1 x 0.5, a neighbour 1 to the right: margin 0.5, Gaussian rectangle
    // [-0.5, 1.5] x [-0.5, 1.0]: bottom and top 2 long, left and right 1.5. By direction (right,
    // left, top, bottom): the side's fixed coordinate and its share of the contour 7.
    const double at[] = {0, 1.5, -0.5, 1.0, -0.5},
                 share[] = {0, 1.5 / 7, 1.5 / 7, 2.0 / 7, 2.0 / 7};
    NetManager nets = make_nets({rect(0, 0, 1, 0.5), rect(2, 0, 3, 0.5)}, rect(-10, -10, 10, 10));
    RandGen rng(5);
    int count[5] = {0, 0, 0, 0, 0};
    const int n = 70000;
    for (int k = 0; k < n; ++k) {
        NormDir dir;
        const WalkPoint p = nets.sample(dir, &rng);
        ASSERT_EQ(p.weight, 1.0);
        ASSERT_TRUE(dir >= NORM_X_POS && dir <= NORM_Y_NEG) << dir;
        const bool vertical = dir == NORM_X_POS || dir == NORM_X_NEG;
        const double across = vertical ? p.point.x : p.point.y,
                     along = vertical ? p.point.y : p.point.x;
        ASSERT_EQ(across, at[dir]) << dir;
        ASSERT_TRUE(along >= -0.5 && along <= (vertical ? 1.0 : 1.5)) << dir << " " << along;
        ++count[dir];
    }
    // Five binomial sigmas is about 0.009.
    for (int d = 1; d <= 4; ++d) EXPECT_NEAR(count[d] / double(n), share[d], 0.009) << d;
}

TEST(SolverWalk, WalksEndOnConductorsAndCountTheirHops) {
    NetManager nets = make_nets(
        {rect(-0.05, 0.3, 0.05, 0.5), rect(0.15, 0.3, 0.25, 0.5), rect(-10, -0.1, 10, 0.0)},
        rect(-10, 0, 10, 10));
    online_table_manager tables, tables2;
    WalkManager w(&nets, quiet_config(), tables, 42), again(&nets, quiet_config(), tables2, 42);
    int on_master = 0;
    for (int k = 0; k < 2000; ++k) {
        w.walk();
        again.walk();  // same seed, same tables: the same walk
        ASSERT_EQ(std::tie(again.hops, again.weight, again.hit_net),
                  std::tie(w.hops, w.weight, w.hit_net));
        ASSERT_NE(w.hit_net, nullptr);
        ASSERT_GE(w.hops, 2u);  // the start lies 0.05 from every conductor
        // The first hop carries the only weight: +-T e / r with r = 0.05 and e = 3.9.
        ASSERT_NEAR(std::abs(w.weight), tables.get_single_wvtx()->total_weight * 3.9 / 0.05, 1e-9);
        on_master += w.hit_net == nets.master;
    }
    EXPECT_GT(on_master, 0);
    EXPECT_LT(on_master, 2000);
}

TEST(SolverWalk, CompanionStartsMirroredThroughTheOriginWithTheOppositeWeight) {
    // Master [-0.05, 0.05] x [0.3, 0.5], plate 0.3 below: Gaussian rectangle
    // [-0.2, 0.2] x [0.15, 0.65]. A bottom start (x, 0.15) has its companion at (0, 0.3), on the
    // master's bottom edge; a side start (+-0.2, y) at (+-0.4, 0), 1e-4 under the clipped plate.
    NetManager nets =
        make_nets({rect(-0.05, 0.3, 0.05, 0.5), rect(-10, -0.1, 10, 0.0)}, rect(-10, 0, 10, 10));
    online_table_manager tables;
    WalkManager w(&nets, quiet_config(), tables, 8);
    int bottom = 0, side = 0;
    for (int k = 0; k < 400; ++k) {
        w.walk();
        const NormDir dir = w.norm_dir;
        w.comb_walk();
        EXPECT_EQ(w.weight, -1.0);  // the start weight, negated; plain hops keep it
        if (dir == NORM_Y_NEG) {
            ++bottom;
            EXPECT_EQ(w.hops, 1u);
            EXPECT_EQ(w.hit_net, nets.master);
        } else if (dir == NORM_X_POS || dir == NORM_X_NEG) {
            ++side;
            EXPECT_GT(w.hops, 1u);
        }
    }
    EXPECT_GT(bottom, 0);
    EXPECT_GT(side, 0);
}

TEST(SolverWalk, FirstHopWeighsOutwardLandingsAlikeOnEverySideAndStackAxis) {
    // The first hop's weight is the derivative of the box's Green's function along the start
    // side's outward normal n, so E[weight * (landing - start) . n] has one sign for every side,
    // whichever axis the box's layers are stacked along.
    NetManager nets =
        make_nets({rect(-0.05, 0.3, 0.05, 0.5), rect(-10, -0.1, 10, 0.0)}, rect(-10, 0, 10, 10));
    online_table_manager tables;
    WalkManager w(&nets, quiet_config(), tables, 11);
    const std::pair<NormDir, Vector2D> sides[] = {
        {NORM_X_POS, {1, 0}}, {NORM_X_NEG, {-1, 0}}, {NORM_Y_POS, {0, 1}}, {NORM_Y_NEG, {0, -1}}};
    double sign = 0;
    for (int direction : {1, 2}) {
        for (const auto& [side, n] : sides) {
            SCOPED_TRACE(testing::Message() << "direction " << direction << " side " << side);
            double sum = 0, sum2 = 0;
            const int draws = 20000;
            for (int k = 0; k < draws; ++k) {
                w.fitter.direction = direction;
                w.fitter.heights = {0.0, 1.2};
                w.fitter.eps = {2.0, 8.0};
                w.norm_dir = side;
                w.position = {0, 0};
                w.weight = 1.0;
                w.transfer_online_table_wvt(1.0);
                const double v = w.weight * (w.position.x * n.x + w.position.y * n.y);
                sum += v;
                sum2 += v * v;
            }
            const double mean = sum / draws;
            const double err = std::sqrt((sum2 / draws - mean * mean) / draws);
            ASSERT_GT(std::abs(mean), 5 * err);
            if (sign == 0) sign = mean > 0 ? 1 : -1;
            EXPECT_GT(mean * sign, 0);
        }
    }
}

TEST(SolverWalk, FirstHopAlongTheLayersTakesTheWalkersOwnPermittivity) {
    // The derivative along the layers is continuous across them, so the flux it carries is the
    // walker's own permittivity times it, even when the key rounds an interface within half a cell
    // (1/12 here) onto the centre node. Box side 2, centre at height 1, permittivity 7.5 below the
    // interface and 2.7 above.
    online_table_manager tables;
    auto walker_eps = [&](const std::vector<double>& heights, const std::vector<double>& eps) {
        double middle_eps = 0;
        tables.get_WVTx(heights, eps, 2.0, middle_eps);
        return middle_eps;
    };
    for (const auto& [interface, expected] :
         {std::pair{0.97, 2.7}, {1.03, 7.5}, {0.999, 2.7}, {1.001, 7.5}, {0.4, 2.7}, {1.7, 7.5}})
        EXPECT_DOUBLE_EQ(walker_eps({0.0, interface}, {7.5, 2.7}), expected) << interface;
    // Through the stack's last layer and a stack of three.
    EXPECT_DOUBLE_EQ(walker_eps({0.0, 0.2, 0.95, 1.02}, {4.0, 7.0, 2.7, 4.2}), 2.7);
    EXPECT_DOUBLE_EQ(walker_eps({0.0, 0.2, 0.9}, {4.0, 7.0, 2.7}), 2.7);
}

TEST(SolverWalk, PlainHopsThroughLayersLandWhereTheFittedBoxSends) {
    // In a box of layers alone, plain hops read the stack in place instead of copying it. They
    // must land where the fitted box's table sends a walker, with the same draws: inside the
    // window, where the box reaches past it into the mirrored stack, and in a structure whose
    // dielectric block (a film over the left wire) lies outside the box.
    Config c;
    c.space.neumann_walls = true;
    NetManager nets(
        {rect(-0.05, 0.3, 0.05, 0.5), rect(0.3, 0.6, 0.5, 0.75), rect(-2, -0.1, 2, 0.0)},
        {{0.0, 4.1}, {0.25, 2.7}, {0.27, 5.0}, {0.29, 2.7}, {0.55, 7.0}, {0.57, 3.6}},
        {{6.5, rect(-0.07, 0.5, 0.07, 0.52)}}, rect(-2, 0, 2, 2), c.space, c.approx);
    ASSERT_FALSE(nets.media.layer.media.empty());
    online_table_manager tables;
    WalkManager w(&nets, quiet_config(), tables, 5);
    online_table_fitter fitter;
    std::mt19937 pick(3);
    std::uniform_real_distribution<double> x(-2, 2), y(0, 2);
    int hops = 0, mirrored = 0;
    while (hops < 3000) {
        const Vector2D p{x(pick), y(pick)};
        WireNet* hit = nullptr;
        double r = 0;
        if (nets.neighbor(p, hit, r, nullptr, false) == NeighborResult::Absorbed) continue;
        RandGen ref = w.rng;
        double size = r;
        fitter.fit(nets.media, p, size, false, &ref);
        if (!fitter.candidates.empty()) continue;  // the block is in the box: fitted as before
        ASSERT_EQ(size, r);
        const std::array<double, 2> s =
            online_sampling(tables.get_GFT(fitter.heights, fitter.eps, 2 * r, &ref), &ref);
        w.position = p;
        w.hop_type = HOP_GFT;
        w.last_net = nullptr;
        ASSERT_TRUE(w.hop());
        ASSERT_EQ(w.position.x, p.x + r * s[0]) << p.x << " " << p.y;
        ASSERT_EQ(w.position.y, p.y + r * s[1]) << p.x << " " << p.y;
        ASSERT_TRUE(w.rng.engine == ref.engine);
        mirrored += r > -nets.window->chebyshev(p);
        ++hops;
    }
    EXPECT_GT(mirrored, 100);
}
