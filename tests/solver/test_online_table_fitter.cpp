// Box fitting against hand-worked geometry, and the draws from the tables against the physics
// the tables stand for.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "solver/online_table_fitter.h"

namespace {

using namespace RW2D;

// A medium manager over a window with the given layers ({bottom, eps}) and blocks.
struct Scene {
    MediumManager media;
    std::vector<std::unique_ptr<Rectangle>> rects;

    Scene(const std::vector<std::array<double, 2>>& layers,
          const std::vector<std::pair<double, Rectangle>>& blocks,
          Rectangle window = Rectangle(-50, 50, 50, -50)) {
        std::vector<std::pair<double, Rectangle*>> pieces;
        for (const auto& [e, r] : blocks) {
            rects.push_back(std::make_unique<Rectangle>(r));
            pieces.emplace_back(e, rects.back().get());
        }
        media.init(layers, pieces, &window);
    }
};

TEST(OnlineTableFitter, EmptyBoxTakesTheLayersAndDrawsNothing) {
    Scene s({{-50, 1}, {5, 3}, {8, 2}}, {});
    online_table_fitter f;
    RandGen rng(7), before(7);
    double size = 3;
    f.fit(s.media, {0, 6}, size, false, &rng);
    EXPECT_EQ(f.direction, 1);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(f.heights, (std::vector<double>{0, 2, 5}));  // box 3..9: boundaries at 5 and 8
    EXPECT_EQ(f.eps, (std::vector<double>{1, 3, 2}));
    EXPECT_TRUE(f.candidates.empty());
    EXPECT_TRUE(rng.engine == before.engine);
    // A box whose bottom is on a boundary starts with the layer above it.
    for (const auto& [y, eps] : {std::pair{6.0, 3.0}, {9.0, 2.0}}) {
        size = 1;
        f.fit(s.media, {0, y}, size, true, &rng);
        EXPECT_EQ(f.heights, (std::vector<double>{0}));
        EXPECT_EQ(f.eps, (std::vector<double>{eps}));
    }
}

TEST(OnlineTableFitter, BlockBesideTheCentreGivesAStackAlongX) {
    // A block filling x >= 0.5 over the whole box height: its vertical edge crosses the box (length
    // 2) and no horizontal one does, so the stack runs along x: eps 1 up to 1.5 from the box's
    // left edge, then 4.
    Scene s({{-50, 1}}, {{4.0, Rectangle(0.5, 2, 2, -2)}});
    online_table_fitter f;
    RandGen rng(3), replay(3);
    double size = 1;
    f.fit(s.media, {0, 0}, size, true, &rng);
    EXPECT_EQ(size, 1);
    EXPECT_EQ(f.direction, 2);
    ASSERT_EQ(f.heights.size(), 2u);
    EXPECT_DOUBLE_EQ(f.heights[1], 1.5);
    EXPECT_EQ(f.heights[0], 0);
    EXPECT_DOUBLE_EQ(f.eps[0], 1.0);  // sampled from the layers: every sample finds eps 1
    EXPECT_DOUBLE_EQ(f.eps[1], 4.0);  // every sample falls inside the block's z range
    for (int i = 0; i < 4; ++i) replay.uniform();
    EXPECT_TRUE(rng.engine == replay.engine);  // exactly four draws
}

TEST(OnlineTableFitter, ShrinksToTheBlockAndKeepsEmptyStrataExact) {
    // Layer boundary at z = -0.5, block eps 5 over |x| < 0.5 from z = 0.2 up. Worked by hand:
    // hz = 0.5 (block sides), hx = 0.2 (block bottom), t = min(0.5, hx) = 0.2, w = max(t, hz) =
    // 0.5.
    Scene s({{-50, 1}, {-0.5, 2}}, {{5.0, Rectangle(-0.5, 0.5, 5, 0.2)}});
    online_table_fitter f;
    RandGen rng(11);
    double size = 1;
    f.fit(s.media, {0, 0}, size, false, &rng);
    EXPECT_DOUBLE_EQ(size, 0.5);
    EXPECT_EQ(f.direction, 1);
    ASSERT_EQ(f.heights.size(), 2u);
    EXPECT_EQ(f.heights[0], 0);
    EXPECT_DOUBLE_EQ(f.heights[1], 0.7);  // block bottom 0.2 above the box bottom -0.5
    EXPECT_EQ(f.eps[0], 2.0);             // no media: the layer value, not sampled
    EXPECT_DOUBLE_EQ(f.eps[1], 5.0);      // the block spans all transverse samples
}

// Monte Carlo over the homogeneous tables: the draws must reproduce what the tables mean.
constexpr int kDraws = 200000;

TEST(OnlineTableSampling, GreenDrawsFollowTheHarmonicMeasure) {
    online_table_manager m;
    const PDFGFT* t = m.get_single_gft();
    RandGen rng(12345);
    int lower = 0, upper = 0, left = 0, right = 0, centre_pair = 0, mirror = 0;
    for (int i = 0; i < kDraws; ++i) {
        const auto [tx, tz] = online_sampling(t, &rng);
        lower += tz == -1, upper += tz == 1, left += tx == -1, right += tx == 1;
        centre_pair += tz == -1 && std::fabs(std::fabs(tx) - 1.0 / 24) < 1e-12;
        mirror += tz == -1 && tx > 0;
    }
    // Each face 1/4 (sigma ~ 0.001); the two panels at the middle of a face carry 2 x 0.017319
    // of the exact harmonic measure from the centre (the series of the square, see the table
    // solver's tests): sigma ~ 4e-4.
    for (int c : {lower, upper, left, right}) EXPECT_NEAR(c / double(kDraws), 0.25, 0.005);
    EXPECT_NEAR(centre_pair / double(kDraws), 2 * 0.0173191, 0.002);
    EXPECT_NEAR(mirror / double(lower), 0.5, 0.01);
}

TEST(OnlineTableSampling, WeightDrawsEstimateTheCentreDerivatives) {
    // E[w f(point)] is the derivative at the centre, in half-box units, of the harmonic f with
    // those boundary values: 1 for f = tz (z table) and f = tx (x table), 0 for f = 1 and for the
    // other coordinate.
    online_table_manager m;
    RandGen rng(99);
    double z_on_z = 0, z_on_1 = 0, z_on_x = 0, x_on_x = 0, x_on_1 = 0, x_on_z = 0;
    for (int i = 0; i < kDraws; ++i) {
        const auto [w, tx, tz] = online_sampling(m.get_single_wvtz(), &rng);
        z_on_z += w * tz, z_on_1 += w, z_on_x += w * tx;
        const auto [v, sx, sz] = online_sampling(m.get_single_wvtx(), &rng);
        x_on_x += v * sx, x_on_1 += v, x_on_z += v * sz;
    }
    // |w| = total weight ~ 1.18: sigma of each mean below 0.003.
    EXPECT_NEAR(z_on_z / kDraws, 1.0, 0.015);
    EXPECT_NEAR(x_on_x / kDraws, 1.0, 0.015);
    for (double s : {z_on_1, z_on_x, x_on_1, x_on_z}) EXPECT_NEAR(s / kDraws, 0.0, 0.015);
}

TEST(OnlineTableSampling, LayeredWeightDrawsFollowTheLayeredPotential) {
    // Interface on the centre line, eps 1 below and 10 above; phi = integral of dt/eps in box
    // units is harmonic in the layered box, and its derivative at the centre, taken in the layer
    // below, is 1 (half-box units). Its mean value over the Green's draws is phi(centre) = 0.
    online_table_manager m;
    double e = 0;
    const PDFWVTz* z = m.get_WVTz({0, 12}, {1, 10}, 24, e);
    const PDFGFT* g = m.get_GFT({0, 12}, {1, 10}, 24);
    EXPECT_NEAR(e, 1.0, 1e-9);  // the stack is one the key holds exactly: the permittivity below
    auto phi = [](double t) { return t < 0 ? t : t / 10; };
    RandGen rng(2024);
    double dz = 0, mean = 0;
    for (int i = 0; i < kDraws; ++i) {
        const auto [w, tx, tz] = online_sampling(z, &rng);
        dz += w * phi(tz);
        const auto [gx, gz] = online_sampling(g, &rng);
        mean += phi(gz);
    }
    EXPECT_NEAR(dz / kDraws, 1.0, 0.02);
    EXPECT_NEAR(mean / kDraws, 0.0, 0.01);
}

TEST(OnlineTableSampling, QuarterDrawsWeighTheQuartersByPermittivity) {
    online_table_manager m;
    const PDFGFT* t = m.get_single_gft();
    RandGen rng(77);
    std::vector<double> q;
    int count[4] = {};  // lower face right, right face low, lower face left, left face low
    for (int i = 0; i < kDraws; ++i) {
        q = {1, 3, 0, 0};
        const auto [tx, tz] = oct_sampling(t, q, &rng);
        ASSERT_TRUE(tz == -1 || (std::fabs(tx) == 1 && tz < 0)) << tx << " " << tz;
        ++count[(tx < 0) * 2 + (tz != -1)];
    }
    EXPECT_EQ(q, (std::vector<double>{0.25, 1, 1, 1}));
    const double share[] = {0.375, 0.375, 0.125, 0.125};
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(count[k] / double(kDraws), share[k], 0.005) << k;
}

}  // namespace
