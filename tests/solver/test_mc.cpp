// Monte Carlo estimator and solver entry: statistics by hand, the four report forms, filtering and
// scatter of wires, physics of parallel plates, reproducibility and re-entrancy.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <tuple>
#include <utility>
#include <vector>

#include "solver/api_wrapper.h"
#include "solver/config.h"
#include "solver/mc_manager.h"
#include "solver/net_manager.h"

using namespace RW2D;

namespace {

Rectangle rect(double x0, double y0, double x1, double y1) {
    return Rectangle(x0, x1, y1, y0);
}

// Master [0, 1]^2 with a neighbour 1 to its right: margin 0.5, Gaussian rectangle
// [-0.5, 1.5] x [-0.5, 1.5], contour 8 when the window holds it.
NetManager two_nets(const Rectangle& window) {
    const Config c;
    return NetManager({rect(0, 0, 1, 1), rect(2, 0, 3, 1)}, {{-20, 1.0}}, {}, window, c.space,
                      c.approx);
}

Config::MCArgs plain() {
    Config::MCArgs a;
    a.stratified = false;
    return a;
}

using Wires = std::vector<std::array<double, 4>>;
using Layers = std::vector<std::array<double, 2>>;
using Diels = std::vector<std::pair<double, std::array<double, 4>>>;
constexpr double kEps0 = 0.00885418781762039;

}  // namespace

TEST(SolverRecorder, ScaleCountsOnlyGaussianSidesInsideTheWindow) {
    NetManager whole = two_nets(rect(-10, -10, 10, 10));
    EXPECT_DOUBLE_EQ(Recorder(Config::MCArgs{}, &whole).scale, 8.0);
    // Right side cut off at x = 1.2: bottom and top 1.7 each, left 2.
    NetManager cut = two_nets(rect(-10, -10, 1.2, 10));
    EXPECT_DOUBLE_EQ(Recorder(Config::MCArgs{}, &cut).scale, 5.4);
}

TEST(SolverRecorder, PlainAndStratifiedMomentsByHand) {
    NetManager nets = two_nets(rect(-10, -10, 10, 10));
    const WireNet* m = nets.nets[0];
    const WireNet* o = nets.nets[1];

    Recorder p(plain(), &nets);
    p.record(-1.0, m, 3);
    p.record(-3.0, m, 5);
    p.record(2.0, o, 4);
    p.record(2.0, o, 6);
    // Master: sums -4 over 4 walks, squares 10: mean -1, E(w^2) 2.5, variance of mean 0.375.
    EXPECT_DOUBLE_EQ(p.expectation(m), -1.0 * 8);
    EXPECT_DOUBLE_EQ(p.variance_of_mean(m), 0.375);
    EXPECT_DOUBLE_EQ(p.estimated_sigma(m), std::sqrt(0.375) / -1.0);
    EXPECT_DOUBLE_EQ(p.hops_per_walk(), 4.5);
    EXPECT_EQ(p.total_walks(), 4u);

    Config::MCArgs sa;  // stratified by default
    Recorder s(sa, &nets);
    s.record(4.0, o, 2);   // stratum 0
    s.record(2.0, m, 2);   // stratum 0
    s.record(-2.0, o, 3);  // stratum 1
    s.record(0.0, m, 3);   // zero weight counts as stratum 1
    EXPECT_EQ(s.walks[0], 2u);
    EXPECT_EQ(s.walks[1], 2u);
    // Net o: m0 = 2, m1 = -1, E = (2 - 1)/2 * 8 = 4. q0 = 8, q1 = 2.
    EXPECT_DOUBLE_EQ(s.expectation(o), 4.0);
    const double v = (8 - 4) / 2.0 + (2 - 1) / 2.0;  // 2.5
    EXPECT_DOUBLE_EQ(s.estimated_sigma(o), std::sqrt(v) / 1.0);
    EXPECT_DOUBLE_EQ(s.variance_of_mean(o), v * 0.25);

    // A net nobody reached: NaN in the plain form reads 1.0, so it never stops the loop.
    Recorder empty(plain(), &nets);
    empty.record(1.0, m, 1);
    EXPECT_EQ(empty.estimated_sigma(o), 1.0);
}

TEST(SolverEntry, ParallelPlatesMatchTheirClosedForms) {
    // A plate spanning the window 1.0 above the ground: C = eps0 eps W / d, exact in 2-D with
    // reflecting sides. Layered: two slabs in series, d1/eps1 + d2/eps2 = 0.5/2 + 0.5/5.
    const Wires wires = {{-5, 1.0, 5, 1.5}, {-5, -0.1, 5, 0.0}};
    const std::array<double, 4> window = {-5, 0, 5, 10};
    // {layers, sum of d/eps, relative tolerance}
    for (const auto& [layers, d_over_eps, tol] :
         {std::tuple{Layers{{0, 3.9}}, 1.0 / 3.9, 0.005},
          {Layers{{0, 2.0}, {0.5, 5.0}}, 0.5 / 2.0 + 0.5 / 5.0, 0.01}}) {
        const auto c = RW2D_API::extract_capacitance(wires, layers, {}, window, 0.01, 4);
        ASSERT_EQ(c.size(), 4u);
        const double exact = kEps0 * 10 / d_over_eps;
        EXPECT_NEAR(c[0], exact, tol * exact + 3 * std::sqrt(c[2])) << d_over_eps;
        EXPECT_NEAR(c[1], -exact, tol * exact + 3 * std::sqrt(c[3])) << d_over_eps;
    }
}

namespace {

// A small mixed set of solves: three structures, several masters and seeds, one with coats.
struct Call {
    Wires wires;
    Layers layers;
    Diels diels;
    std::array<double, 4> window;
    int seed;
};

std::vector<Call> calls() {
    const std::array<double, 4> w1 = {-0.05, 0.3, 0.05, 0.5}, w2 = {0.15, 0.3, 0.25, 0.5},
                                w3 = {-0.12, 0.72, 0.12, 0.9};
    const std::array<double, 4> win = {-6, 0, 6, 9}, plate = {-6, -0.1, 6, 0};
    const Layers stack = {{0, 4.0}, {0.3, 2.9}, {0.65, 7.5}, {0.67, 2.9}, {1.1, 1.0}};
    const Diels coats = {{7.0, {-0.06, 0.3, 0.06, 0.51}}};
    std::vector<Call> out;
    for (int s = 0; s < 2; ++s) {
        out.push_back({{w1, w2, w3, plate}, stack, {}, win, 10 + s});
        out.push_back({{w3, w1, w2, plate}, stack, {}, win, 20 + s});
        out.push_back({{w2, w1, plate}, {{0, 3.9}}, coats, win, 30 + s});
    }
    return out;
}

std::vector<double> run(const Call& c) {
    return RW2D_API::extract_capacitance(c.wires, c.layers, c.diels, c.window, 0.04, c.seed);
}

}  // namespace

TEST(SolverEntry, ConcurrentCallsGiveTheAnswersOfSequentialCalls) {
    const std::vector<Call> cs = calls();
    std::vector<std::vector<double>> serial(cs.size()), parallel(cs.size());
    for (std::size_t i = 0; i < cs.size(); ++i) serial[i] = run(cs[i]);
        // As the pattern generator calls it: from the workers of its own team.
#pragma omp parallel for schedule(dynamic, 1) num_threads(3)
    for (std::size_t i = 0; i < cs.size(); ++i) parallel[i] = run(cs[i]);
    for (std::size_t i = 0; i < cs.size(); ++i) EXPECT_EQ(serial[i], parallel[i]) << "call " << i;
    // Identical arguments give identical results; another seed gives others.
    EXPECT_EQ(run(cs[0]), serial[0]);
    Call other = cs[0];
    other.seed += 100;
    EXPECT_NE(run(other), serial[0]);
}

TEST(SolverEntry, TwoWalkerThreadsAgreeWithOneWithinErrorBarsAndDrawOtherStreams) {
    const Call c = calls()[0];
    std::vector<Rectangle> wires;
    for (const auto& w : c.wires) wires.push_back(Rectangle::from_array(w));
    // Base seed 0 must not give every walker the same stream.
    Config cfg = Config::for_entry(0.02, 0);
    cfg.load_tables = false;
    std::vector<double> r[2];
    for (int t = 0; t < 2; ++t) {
        cfg.mc.threads = t + 1;
        r[t] = MCManager().estimate(wires, c.layers, {}, Rectangle::from_array(c.window), cfg);
    }
    const std::size_t n = wires.size();
    ASSERT_EQ(r[1].size(), 2 * n);
    // Had both walkers drawn the one walker's stream, each would have stopped at the same walk
    // with the same sums, and the merged estimate would equal the single one exactly.
    EXPECT_NE(r[0][0], r[1][0]);
    for (std::size_t j = 0; j < n; ++j) {
        EXPECT_GT(r[1][n + j], 0.0);
        EXPECT_LT(r[1][n + j], r[0][n + j]);  // both threads ran the full count: smaller variance
        EXPECT_NEAR(r[0][j], r[1][j], 4 * std::sqrt(r[0][n + j] + r[1][n + j])) << j;
    }
}
