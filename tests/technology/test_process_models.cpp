// The process models, expected values worked out by hand from the tables: etch tables (row
// order, edge clamps, exact-axis brackets, the polynomial lookup), thickness models (the
// density-and-width table with its density window, the polynomial with its change limits), and
// resistance models (reciprocal interpolation, sheet- and via-resistance lookups with their edges).
#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "tech_test_util.h"
#include "technology/process_model.h"
#include "technology/process_model_resistance.h"
#include "technology/process_model_thickness.h"

namespace {

// Two widths by three spacings, every entry different, so that a transposed read shows.
// Row w=1: 1 2 3; row w=2: 10 20 30.
EtchModel asymmetricTable() {
    EtchModel m;
    m.widths = {1.0, 2.0};
    m.spacings = {10.0, 20.0, 30.0};
    m.values = {1.0, 2.0, 3.0, 10.0, 20.0, 30.0};
    return m;
}

// Each case is {width, spacing, expected value}.
void expectEval(const EtchModel& m, std::initializer_list<std::array<double, 3>> cases) {
    for (const auto& [w, s, want] : cases) {
        double out = -999.0;
        EXPECT_EQ(m.evalEtch(w, s, out), 1) << "w=" << w << " s=" << s;
        EXPECT_NEAR(out, want, 1e-12) << "w=" << w << " s=" << s;
    }
}

TEST(EtchModel, RowsRunAlongWidthAndClampAtTheEdges) {
    const EtchModel m = asymmetricTable();
    // Exact rows, the bilinear middle of a cell (mean of 2, 3, 20, 30), and a quarter of the way
    // from 1 to 10 along the width only.
    expectEval(m, {{1, 20, 2}, {2, 10, 10}, {2, 30, 30}, {1.5, 25, 13.75}, {1.25, 10, 3.25}});
    // Outside the axes the edge values hold: below both, above both, one axis inside.
    expectEval(m, {{0.1, 1, 1}, {7, 99, 30}, {0.1, 25, 2.5}, {9, 15, 15}, {1.5, -4, 5.5}});
}

TEST(EtchModel, ExactAxisValueTakesThatRowAsLowBracket) {
    // The bracket above w=2 is (2, 2+5e-11), too narrow to divide by; the bracket below it would be
    // fine. A lookup at exactly 2 must pick the upper one and fail.
    EtchModel m;
    m.widths = {1.0, 2.0, 2.0 + 5e-11};
    m.spacings = {1.0};
    m.values = {10.0, 20.0, 40.0};
    double out = -1.0;
    EXPECT_TRUE(m.evalEtch(2.0, 1.0, out) == 0 && out == -1.0) << out;
    expectEval(m, {{1.5, 1, 15}, {3, 1, 40}});

    const std::vector<double> axis = {1.0, 2.0, 3.0};
    // {x, low, high}
    const double grid[][3] = {{0, 0, 1}, {1, 0, 1}, {2, 1, 2}, {2.5, 1, 2}, {3, 2, 2}, {9, 2, 2}};
    for (const auto& [x, low, high] : grid) {
        int lo = -7, hi = -7;
        EXPECT_EQ(EtchModel::searchGrid(axis, x, lo, hi), 1);
        EXPECT_TRUE(lo == low && hi == high) << "x=" << x << ": " << lo << " " << hi;
    }
    int lo = -7, hi = -7;
    EXPECT_TRUE(EtchModel::searchGrid({5.0}, 1.0, lo, hi) == 1 && lo == 0 && hi == 0);
    EXPECT_EQ(EtchModel::searchGrid({}, 1.0, lo, hi), 0);
}

TEST(EtchModel, MalformedTablesFailAndKeepTheCallersValue) {
    EtchModel m = asymmetricTable();
    m.values.pop_back();  // 2 widths x 3 spacings with 5 values
    EXPECT_EQ(m.modelOK(), 0);
    double out = 42.0;
    EXPECT_FALSE(m.evalEtch(1.0, 10.0, out) || m.evalEtchwPoly(1.0, 10.0, out) ||
                 EtchModel().evalEtch(1.0, 1.0, out));
    EXPECT_DOUBLE_EQ(out, 42.0);
}

TEST(EtchModel, PolynomialLookupAlongSpacing) {
    // Row w=1 holds s^2, row w=3 holds 2 s^2: a quadratic is reproduced exactly by the polynomial
    // through three points, while the plain lookup is linear between neighbours.
    EtchModel m;
    m.widths = {1.0, 3.0};
    m.spacings = {0.0, 1.0, 2.0};
    m.values = {0.0, 1.0, 4.0, 0.0, 2.0, 8.0};
    expectEval(m, {{1, 1.5, 2.5}});
    // Halfway between 2.25 and 4.5 at w=2; edge values, no extrapolated parabola, outside.
    for (const auto& [w, s, want] :
         {std::array<double, 3>{1, 1.5, 2.25}, {2, 1.5, 3.375}, {1, 5, 4}, {3, -1, 0}}) {
        double out = 0.0;
        ASSERT_EQ(m.evalEtchwPoly(w, s, out), 1);
        EXPECT_NEAR(out, want, 1e-12) << w << "," << s;
    }
}

// A density source with a fixed density per window size.
class FixedDensity : public DensitySource {
public:
    std::map<int32_t, double> by_box;

    double getDensity(int32_t, int32_t, int32_t box) const override {
        auto it = by_box.find(box);
        return it == by_box.end() ? 0.0 : it->second;
    }
};

// A one-range polynomial: the sum of c[i * |w| + j] d^density[i] w^width[j].
ThicknessPolynomialModel polynomial(std::vector<int32_t> density, std::vector<int32_t> width,
                                    std::vector<double> c) {
    ThicknessPolynomialModel m;
    m.density_orders = std::move(density);
    m.width_orders = std::move(width);
    m.coefficients = {std::move(c)};
    return m;
}

double thickness(const ThicknessPolynomialModel& m, double d, double w, double nominal = 0.0) {
    double out = -999.0;
    EXPECT_EQ(m.getThickness(d, w, out, nominal), 1);
    return out;
}

}  // namespace

TEST(ThicknessDensityWidthModel, DensityIsTheFirstAxis) {
    ThicknessDensityWidthModel m;
    m.table.widths = {0.0, 1.0};    // densities
    m.table.spacings = {1.0, 2.0};  // widths
    m.table.values = {0.0, 0.1, 0.2, 0.4};
    m.boxes = {{5.0, 1.0}};
    m.setDBU(0.005);
    FixedDensity map;
    map.by_box = {{1000, 1.0}};
    EXPECT_DOUBLE_EQ(m.getThickness(1.0, 0, 0, map), 0.2);  // density 1, width 1
    map.by_box = {{1000, 0.5}};
    EXPECT_DOUBLE_EQ(m.getThickness(1.5, 0, 0, map), 0.175);
    m.table.values.pop_back();
    EXPECT_DOUBLE_EQ(m.getThickness(1.5, 0, 0, map), 0.0);
}

TEST(ThicknessPolynomialModel, ChangeIsBoundedByMaxChangeOrThicknessBounds) {
    EXPECT_TRUE(tech_test::near({thickness(polynomial({0}, {0}, {1}), 0.5, 1),
                                 thickness(polynomial({0}, {0}, {-1}), 0.5, 1)},
                                {0.4, -0.4}));

    // Linear in density and width: 0.01 + 0.02 w + d (0.03 + 0.04 w).
    ThicknessPolynomialModel m = polynomial({0, 1}, {0, 1}, {0.01, 0.02, 0.03, 0.04});
    m.setThicknessBounds(0.9, 1.05);
    // 1.105 times nominal 1 is cut to 1.05; nominal 2: 2.21 is cut to 1.05 -> 1.05 / 2 - 1; no
    // nominal: the bounds do not apply, 0.01 + 0.04 + 0.5 * (0.03 + 0.08).
    EXPECT_TRUE(
        tech_test::near({thickness(m, 0.5, 2, 1), thickness(m, 0.5, 2, 2), thickness(m, 0.5, 2, 0)},
                        {0.05, -0.475, 0.105}));
    // A negative width order divides.
    EXPECT_NEAR(thickness(polynomial({2}, {-1}, {0.2}), 0.5, 4.0), 0.2 * 0.25 / 4.0, 1e-15);
}

TEST(ReciprocalInterpolation, HandComputedValuesAndFailures) {
    // Linear axis: t = 0.5, conductance 1/2 - 0.5 (1/2 - 1/6) = 1/3.
    EXPECT_NEAR(reciprocalInterpolation(1.0, 3.0, 2.0, 6.0, 2.0, 0), 3.0, 1e-12);
    // Inverse axis: t = (1/2 - 1) / (1/3 - 1) = 0.75, conductance 1/2 - 0.75 / 3 = 1/4.
    EXPECT_NEAR(reciprocalInterpolation(1.0, 3.0, 2.0, 6.0, 2.0, 1), 4.0, 1e-12);

    // A zero axis end, a value near 0, a zero-width bracket; t = 2 in the last drives the
    // conductance to 1 - 2 (1 - 0.1) < 0.
    const double bad[][5] = {
        {0, 3, 2, 6, 2}, {1, 3, 1e-10, 6, 2}, {1, 3, 2, 0, 2}, {2, 2, 2, 6, 2}, {1, 2, 1, 10, 3}};
    for (const auto& [x0, x1, f0, f1, x] : bad)
        EXPECT_EQ(reciprocalInterpolation(x0, x1, f0, f1, x, 0), -1.0) << x0 << " " << f0;
}

TEST(RPSQWidthSpacingModel, TwoAxesSpacingFirstThenWidth) {
    // Row w=1: 2 6; row w=3: 4 12.
    RPSQWidthSpacingModel m;
    m.widths = {1.0, 3.0};
    m.spacings = {1.0, 3.0};
    m.values = {2.0, 6.0, 4.0, 12.0};
    // Row w=1 at s=2: conductance 1/2 - 0.5 (1/2 - 1/6) = 1/3; row w=3 at s=2: 1/4 - 0.5 (1/4 -
    // 1/12) = 1/6; between 3 and 6 on 1/w at t = 0.75: 1/3 - 0.75 (1/3 - 1/6) = 5/24.
    EXPECT_TRUE(tech_test::near(
        {m.getRPSQ(3, 1), m.getRPSQ(1, 2), m.getRPSQ(3, 2), m.getRPSQ(2, 2), m.getRPSQ(9, 0)},
        {4, 3, 6, 24.0 / 5.0, 4}));

    std::unique_ptr<RPSQWidthSpacingModel> c(m.clone());
    m.reset();
    EXPECT_EQ(m.getRPSQ(2.0, 2.0), -1.0);
    EXPECT_NEAR(c->getRPSQ(2.0, 2.0), 4.8, 1e-12);
}

TEST(PRVWidthLength, BilinearInsideAndAreaScaledOutside) {
    // rpv = 8 / (w l) at the four corners.
    PRVWidthLength m;
    EXPECT_EQ(m.getRPV(1.0, 1.0), -1.0);
    m.widths = {1.0, 2.0};
    m.lengths = {1.0, 4.0};
    m.values = {8.0, 2.0, 4.0, 1.0};
    // Inside: a corner, an edge, the mean of the corners 8, 2, 4, 1. Outside, the edge value
    // scaled by the area: 4 * 2 / 4, 1 * (2 / 4) * (4 / 8), 8 * 1 / 0.5.
    EXPECT_TRUE(tech_test::near({m.getRPV(1, 4), m.getRPV(1.5, 1), m.getRPV(1.5, 2.5),
                                 m.getRPV(4, 1), m.getRPV(4, 8), m.getRPV(0.5, 1)},
                                {2, 6, 3.75, 2, 0.25, 16}));
    m.values.pop_back();
    EXPECT_EQ(m.getRPV(1.0, 1.0), -1.0);
}
