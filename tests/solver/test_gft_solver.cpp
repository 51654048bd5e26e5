// Checks of the box tables against the continuous problem they discretise: the harmonic measure
// and the derivative kernels of a square, and exact identities of layered media.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "solver/gft_solver.h"
#include "solver/online_table.h"
#include "solver/online_table_random.h"

namespace {

using RW2D::gft_solver;
constexpr double kPi = 3.14159265358979323846;
constexpr double L = 24;  // box side in grid cells

// Fourier sine coefficient of unit data on [a, a+h] of a face of length L.
double panel_coefficient(int m, double a, double h) {
    return 2 / (m * kPi) * (std::cos(m * kPi * a / L) - std::cos(m * kPi * (a + h) / L));
}

// Separation of variables in the square [0,L]^2 with data on the top face:
// u = sum b_m sin(m pi x/L) sinh(m pi z/L) / sinh(m pi). At the centre:
//  u       = sum b_m sin(m pi/2) / (2 cosh(m pi/2))          (probability of the panel)
//  12 u_z  = 12 sum b_m (m pi/L) sin(m pi/2) / (2 sinh(m pi/2))
//  12 u_x  = 12 sum b_m (m pi/L) cos(m pi/2) / (2 cosh(m pi/2))
// (12 cells = half a box: derivatives in half-box units.)
template <class F>
double series(double a, int first_mode, F term) {
    double s = 0;
    for (int m = first_mode; m < 400; m += 2) s += panel_coefficient(m, a, 1) * term(m * kPi);
    return s;
}
double exact_probability(double a) {
    return series(a, 1, [](double k) { return std::sin(k / 2) / (2 * std::cosh(k / 2)); });
}
double exact_dz(double a) {
    return 12 *
           series(a, 1, [](double k) { return k / L * std::sin(k / 2) / 2 / std::sinh(k / 2); });
}
double exact_dx(double a) {
    return 12 *
           series(a, 2, [](double k) { return k / L * std::cos(k / 2) / 2 / std::cosh(k / 2); });
}

// Probability of panel j of block face (0 lower, 1 upper, 2 side) of any table in cdf form, for
// one of the two panels the block stands for (two halves of a face, or the two side faces).
template <class T>
double block_p(const T& t, int face, int j) {
    const double* cdf = face == 0 ? t.lower_cdf : face == 1 ? t.upper_cdf : t.side_cdf;
    const double share = t.face_cdf[face] - (face ? t.face_cdf[face - 1] : 0);
    return share / 2 * (cdf[j] - (j ? cdf[j - 1] : 0));
}

// Potential of a layered medium with unit flux, zero at the centre of a box of height `top`:
// phi(z) = integral from top/2 to z of dz/eps. It solves the layered problem exactly (continuous,
// eps*phi' continuous) and is linear in each cell. eps[i] lies below bounds[i], the last above.
template <class V>
double layered_phi(const V& bounds, const std::vector<double>& eps, double top, double z) {
    auto from_zero = [&](double t) {
        double s = 0, lo = 0;
        for (size_t i = 0; i <= bounds.size(); ++i) {
            const double hi = i < bounds.size() ? bounds[i] : top;
            if (std::min(hi, t) > lo) s += (std::min(hi, t) - lo) / eps[i];
            lo = hi;
        }
        return s;
    };
    return from_zero(z) - from_zero(top / 2);
}

struct Stack {
    std::vector<int> itf;
    std::vector<double> eps;
};

std::string solve_capturing(gft_solver& g, const Stack& s) {
    testing::internal::CaptureStdout();
    g.solve_pack(gft_solver::SOLVE_GFT, s.itf, s.eps);
    g.solve_pack(gft_solver::SOLVE_WVTZ, s.itf, s.eps);
    g.solve_pack(gft_solver::SOLVE_WVTX, s.itf, s.eps);
    return testing::internal::GetCapturedStdout();
}

TEST(GftSolverHomogeneous, FaceSharesAndPanelsMatchTheHarmonicMeasureOfTheSquare) {
    // The series itself: a whole face from the centre has probability 1/4 by symmetry.
    double face = 0;
    for (int j = 0; j < 24; ++j) face += exact_probability(j);
    ASSERT_NEAR(face, 0.25, 1e-12);

    gft_solver g;
    g.solve_single();
    const auto& t = g.gft;
    EXPECT_NEAR(t.face_cdf[0], 0.25, 1e-12);
    EXPECT_NEAR(t.face_cdf[1], 0.5, 1e-12);
    EXPECT_EQ(t.face_cdf[2], 1.0);
    // Panels hold the exact panel integrals; 8 modes with decay 1/cosh(m pi/2) leave < 1e-10 out.
    for (int j = 0; j < 24; ++j) {
        EXPECT_NEAR(block_p(t, 2, j), exact_probability(j), 1e-8 * exact_probability(j)) << j;
        EXPECT_NEAR(block_p(t, 2, j), block_p(t, 2, 23 - j), 1e-15) << j;
        const double panel = exact_probability(j % 12);  // j < 12: the lower block, else the upper
        EXPECT_NEAR(block_p(t, j / 12, j % 12), panel, 1e-8 * panel) << j;
    }
    for (double v : {t.lower_cdf[11], t.upper_cdf[11], t.side_cdf[23]}) EXPECT_DOUBLE_EQ(v, 1.0);
}

TEST(GftSolverHomogeneous, WeightsMatchTheDerivativeKernels) {
    gft_solver g;
    g.solve_single();
    // Exact total magnitude: faces across z carry |u_z| kernels, faces across x (by the 90 degree
    // turn) |u_x| kernels, each on two faces of two halves; the same sum serves both tables.
    double total = 0, lower = 0;
    for (int j = 0; j < 12; ++j) {
        lower += 2 * std::fabs(exact_dz(j));
        total += 4 * std::fabs(exact_dz(j)) + 4 * std::fabs(exact_dx(j));
    }
    // The total scales every first-hop weight, so any error in it is a bias of every capacitance.
    EXPECT_NEAR(g.wvtz.total_weight, total, 1e-8 * total);
    EXPECT_NEAR(g.wvtx.total_weight, total, 1e-8 * total);
    EXPECT_NEAR(g.wvtz.face_cdf[0], lower / total, 1e-8);

    // The sign on the side: a unit potential low on a side face pulls the field down.
    for (int j = 0; j < 12; ++j) {
        EXPECT_FALSE(g.wvtz.side_sign[j]) << j;
        EXPECT_TRUE(g.wvtz.side_sign[23 - j]) << j;
    }
    // Raw panel weights before normalising (find_* refill the upper block only).
    g.find_WVTz();
    g.find_WVTx();
    for (int j = 0; j < 12; ++j) {
        EXPECT_NEAR(g.wvtz.upper_cdf[j], exact_dz(j), 1e-8 * std::fabs(exact_dz(j))) << j;
        EXPECT_NEAR(g.wvtx.upper_cdf[j], exact_dx(j), 1e-8 * std::fabs(exact_dx(j))) << j;
        EXPECT_LT(g.wvtx.upper_cdf[j], 0) << j;  // left half of the face: u_x < 0
    }
}

// What a walker's first hop estimates from a normalised weight table: the mean of weight times
// u at the landing point, with the landing mirrored in x as the sampler does (the z weights are
// even in x, the x weights odd). Lengths in half-box units, the box centre at the origin.
template <class F>
double weighted_mean(const gft_solver::PDFWVTz& t, F u) {
    const double w = t.total_weight;
    double sum = 0;
    for (int j = 0; j < 12; ++j) {
        const double x = (2 * j + 1) / 24.0 - 1;
        sum += -w * block_p(t, 0, j) * (u(x, -1.0) + u(-x, -1.0));
        sum += w * block_p(t, 1, j) * (u(x, 1.0) + u(-x, 1.0));
    }
    for (int j = 0; j < 24; ++j) {
        const double z = (2 * j + 1) / 24.0 - 1;
        sum += (t.side_sign[j] ? w : -w) * block_p(t, 2, j) * (u(-1.0, z) + u(1.0, z));
    }
    return sum;
}
template <class F>
double weighted_mean(const gft_solver::PDFWVTx& t, F u) {
    const double w = t.total_weight;
    double sum = 0;
    for (int j = 0; j < 12; ++j) {
        const double x = (2 * j + 1) / 24.0 - 1;
        for (double z : {-1.0, 1.0}) sum += w * block_p(t, z < 0 ? 0 : 1, j) * (u(-x, z) - u(x, z));
    }
    for (int j = 0; j < 24; ++j) {
        const double z = (2 * j + 1) / 24.0 - 1;
        sum += w * block_p(t, 2, j) * (u(1.0, z) - u(-1.0, z));
    }
    return sum;
}

TEST(GftSolverHomogeneous, FirstHopWeightsReproduceAUniformFieldExactly) {
    // A walker lands on panel centres, where a field linear along the panel takes its panel mean,
    // so the estimate of a uniform field's derivative has no discretisation error at all. A
    // weight from the panel's midpoint value instead of its mean was 0.07% high on every
    // capacitance.
    gft_solver g;
    g.solve_single();
    const struct {
        double a, b;  // u = a x + b z
    } fields[] = {{0, 1}, {1, 0}, {0.3, -2}, {-1.5, 0.7}};
    for (const auto& f : fields) {
        auto u = [&f](double x, double z) { return f.a * x + f.b * z; };
        EXPECT_NEAR(weighted_mean(g.wvtz, u), f.b, 1e-10) << f.a << " " << f.b;
        EXPECT_NEAR(weighted_mean(g.wvtx, u), f.a, 1e-10) << f.a << " " << f.b;
    }
}

// A uniform medium cut by an interface between equal permittivities takes the difference-scheme
// path for the side faces; its tables must still be those of the homogeneous square.
class GftSolverUniformAcrossAnInterface : public testing::TestWithParam<int> {};

TEST_P(GftSolverUniformAcrossAnInterface, TablesMatchTheHomogeneousSquare) {
    gft_solver g;
    const std::string out = solve_capturing(g, Stack{{GetParam()}, {2.5, 2.5}});
    EXPECT_EQ(out.find("complex"), std::string::npos) << out;
    const auto& t = g.gft;
    // Face shares are exact: a side share short by 0.12% sent every walker in a layered box up or
    // down too often.
    EXPECT_NEAR(t.face_cdf[0], 0.25, 1e-9);
    EXPECT_NEAR(t.face_cdf[1], 0.5, 1e-9);
    for (int j = 0; j < 12; ++j) EXPECT_NEAR(block_p(t, 1, j), exact_probability(j), 1e-8) << j;
    // The side's shape is the 24-cell scheme's: a few percent next to the interface node, a
    // quarter short on the small panels at the corners.
    for (int j = 0; j < 24; ++j) {
        const double tolerance = (j < 2 || j > 21) ? 0.3 : 0.05;
        EXPECT_NEAR(block_p(t, 2, j), exact_probability(j), tolerance * exact_probability(j)) << j;
    }

    auto u = [](double x, double z) { return 0.8 * x - 1.3 * z; };
    EXPECT_NEAR(weighted_mean(g.wvtx, u), 0.8, 1e-9);
    EXPECT_NEAR(weighted_mean(g.wvtz, u), -1.3, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Nodes, GftSolverUniformAcrossAnInterface, testing::Values(1, 6, 12, 20));

TEST(GftSolverLayered, ContrastDrawsTheWalkerIntoTheHigherPermittivity) {
    gft_solver up, down;
    up.solve_pack(gft_solver::SOLVE_GFT, {12}, {1.0, 10.0});
    down.solve_pack(gft_solver::SOLVE_GFT, {12}, {10.0, 1.0});
    const auto& t = up.gft;
    EXPECT_GT(t.face_cdf[1] - t.face_cdf[0], 2 * t.face_cdf[0]);
    double low = 0, high = 0;
    for (int j = 0; j < 12; ++j) low += block_p(t, 2, j), high += block_p(t, 2, 23 - j);
    EXPECT_GT(high, 2 * low);
    for (double v : {t.lower_cdf[11], t.upper_cdf[11], t.side_cdf[23]}) EXPECT_NEAR(v, 1.0, 1e-12);
    // The mirrored stack gives the mirrored table.
    EXPECT_NEAR(down.gft.face_cdf[0], t.face_cdf[1] - t.face_cdf[0], 1e-9);
    for (int j = 0; j < 24; ++j) {
        EXPECT_NEAR(block_p(down.gft, 2, j), block_p(t, 2, 23 - j), 1e-9) << j;
        EXPECT_NEAR(block_p(down.gft, j / 12, j % 12), block_p(t, 1 - j / 12, j % 12), 1e-9) << j;
    }
}

// Exact statements for any layered box: probabilities sum to 1, the x weights give 1 on the
// potential x, and the z weights annul a constant and give 12 phi'(centre) = 12/eps_centre on the
// layered potential phi (the layer below the centre when an interface is on node 12), all exactly
// (the side blocks are scaled to make them so; unscaled, the z weights gave a constant up to 1e-3
// of the unit flux and lost 0.14% of it with an interface on the centre node); to the
// discretisation's accuracy (about 1e-3), phi is reproduced at the centre (0).
class GftSolverIdentities : public testing::TestWithParam<Stack> {};

TEST_P(GftSolverIdentities, RawTablesReproduceLayeredPotentials) {
    const Stack s = GetParam();
    gft_solver g;
    const std::string out = solve_capturing(g, s);
    EXPECT_EQ(out.find("complex"), std::string::npos) << out;
    for (const double* v : {g.gft.lower_cdf + 11, g.gft.upper_cdf + 11, g.gft.side_cdf + 23,
                            g.wvtz.side_cdf + 23, g.wvtx.side_cdf + 23})
        EXPECT_NEAR(*v, 1.0, 1e-12);

    g.find_GFT();
    g.find_WVTz();
    g.find_WVTx();
    const double phi_lo = layered_phi(s.itf, s.eps, L, 0), phi_hi = layered_phi(s.itf, s.eps, L, L);
    double p = 0, pphi = 0, wz = 0, wzabs = 0, wzphi = 0, wx = 0;
    for (int j = 0; j < 12; ++j) {
        p += 2 * (g.gft.lower_cdf[j] + g.gft.upper_cdf[j]);
        pphi += 2 * (g.gft.lower_cdf[j] * phi_lo + g.gft.upper_cdf[j] * phi_hi);
        wz += 2 * (g.wvtz.lower_cdf[j] + g.wvtz.upper_cdf[j]);
        wzabs += 2 * (std::fabs(g.wvtz.lower_cdf[j]) + std::fabs(g.wvtz.upper_cdf[j]));
        wzphi += 2 * (g.wvtz.lower_cdf[j] * phi_lo + g.wvtz.upper_cdf[j] * phi_hi);
        const double x = (2 * j + 1) / 24.0 - 1;  // panel centre, box units; the mirror has -x, -w
        wx += 2 * (g.wvtx.lower_cdf[j] + g.wvtx.upper_cdf[j]) * x;
    }
    for (int j = 0; j < 24; ++j) {
        const double phi = layered_phi(s.itf, s.eps, L, j + 0.5);
        p += 2 * g.gft.side_cdf[j];
        pphi += 2 * g.gft.side_cdf[j] * phi;
        wz += 2 * g.wvtz.side_cdf[j];
        wzabs += 2 * std::fabs(g.wvtz.side_cdf[j]);
        wzphi += 2 * g.wvtz.side_cdf[j] * phi;
        wx += -2 * g.wvtx.side_cdf[j];  // the block is the face at x = -1; the other has x = +1
    }
    const size_t centre_layer = std::lower_bound(s.itf.begin(), s.itf.end(), 12) - s.itf.begin();
    const double expect_dz = 12 / s.eps[centre_layer];
    const double scale = std::max(std::fabs(phi_lo), std::fabs(phi_hi));
    EXPECT_NEAR(p, 1.0, 1e-12);
    EXPECT_NEAR(pphi, 0.0, 1e-3 * scale);
    EXPECT_NEAR(wz, 0.0, 1e-12 * wzabs);
    EXPECT_NEAR(wzphi, expect_dz, 1e-12 * expect_dz);
    EXPECT_NEAR(wx, 1.0, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(
    Stacks, GftSolverIdentities,
    testing::Values(Stack{{12}, {1.0, 10.0}},  // interface on the centre node
                    Stack{{12}, {10.0, 1.0}},
                    Stack{{1, 23}, {3.0, 1.0, 2.0}},   // next to both faces
                    Stack{{11, 12}, {1.0, 4.0, 2.0}},  // adjacent nodes through the centre
                    Stack{{12, 13}, {1.0, 9.0, 3.0}}, Stack{{5, 9, 15}, {2.0, 7.0, 1.0, 4.0}},
                    Stack{{3}, {1.0, 50.0}}));

// The first hop off a Gaussian surface in a layered box, through the manager's key path: the z
// weights it hands out, times the factor it returns, must give the flux of the stack's potential
// of unit flux, phi(z) = integral dz/eps, exactly 1 wherever the interfaces lie between the grid
// nodes and whatever ratios the key's permittivity step cannot hold (2.7/7 and 2.6/7.5 are not
// multiples of 1/250). The key rounds both; scaled by the centre's permittivity alone, the flux
// was up to 0.5% off, of one sign for a given pair of materials (-0.2% to -0.5% on average with a
// film of 7 in 2.7 within two cells of the centre).
struct LayeredBox {
    const char* name;
    std::vector<double> bounds;  // in the box of half side 1, bottom at 0, centre at 1
    std::vector<double> eps;     // eps[i] below bounds[i], the last above them all
};

void PrintTo(const LayeredBox& b, std::ostream* os) {
    *os << b.name;
}

class FirstHopFlux : public testing::TestWithParam<LayeredBox> {};

TEST_P(FirstHopFlux, ZWeightsGiveTheUnitFluxOfTheTrueStack) {
    const LayeredBox& b = GetParam();
    RW2D::table_stores stores;
    RW2D::online_table_manager m(stores);
    // The fitter's stack: heights from the box bottom, first 0, then the bounds inside the box.
    std::vector<double> heights{0.0};
    heights.insert(heights.end(), b.bounds.begin(), b.bounds.end());
    // The cell-average key, then keys with the interfaces rounded at random: whatever the key
    // holds, the scale must give the true stack's unit flux.
    RW2D::RandGen rng(5);
    for (RW2D::RandGen* r : {static_cast<RW2D::RandGen*>(nullptr), &rng, &rng, &rng}) {
        double scale = 0;
        const gft_solver::PDFWVTz* t = m.get_WVTz(heights, b.eps, 2.0, scale, r);
        ASSERT_NE(t, nullptr);
        const double flux = scale * weighted_mean(*t, [&](double, double z) {
                                return layered_phi(b.bounds, b.eps, 2, 1 + z);
                            });
        EXPECT_NEAR(flux, 1.0, 1e-9) << b.name;
        // A constant potential carries no flux.
        EXPECT_NEAR(scale * weighted_mean(*t, [](double, double) { return 1.0; }), 0.0, 1e-9);
    }
}

// Interfaces a fraction of a cell (1/12) off the nodes: on either side of the centre node, in
// the cells next to it, mid-box and next to a face.
INSTANTIATE_TEST_SUITE_P(
    Stacks, FirstHopFlux,
    testing::Values(
        LayeredBox{"2.7|7 just below the centre", {0.97}, {2.7, 7}},
        LayeredBox{"2.7|7 just above the centre", {1.03}, {2.7, 7}},
        LayeredBox{"7|2.7 a cell below", {0.9}, {7, 2.7}},
        LayeredBox{"7.5|2.6 just above", {1.01}, {7.5, 2.6}},
        LayeredBox{"2.6|7.5 mid-box", {1.46}, {2.6, 7.5}},
        LayeredBox{"2.6|7.5 next to the top", {1.95}, {2.6, 7.5}},
        LayeredBox{"film 7 in 2.7 through the centre", {0.98, 1.02}, {2.7, 7, 2.7}},
        LayeredBox{"film 7.5 in 2.6 above", {1.05, 1.09}, {2.6, 7.5, 2.6}},
        LayeredBox{"film 7 in 2.7 under a third layer", {0.62, 0.65, 1.3}, {2.7, 7, 2.7, 4.2}}));

}  // namespace
