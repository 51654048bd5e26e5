// Etch tables and the multi-mask etch model: row order, edge clamps, exact-axis brackets,
// single cells, the polynomial lookup, the multi-mask defaults, and deep copies. Expected values
// are worked out by hand from the tables.
#include <gtest/gtest.h>

#include <array>
#include <initializer_list>

#include "technology/process_model.h"

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
    EXPECT_EQ(m.evalEtch(2.0, 1.0, out), 0);
    EXPECT_DOUBLE_EQ(out, -1.0);
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
    EXPECT_EQ(EtchModel::searchGrid({5.0}, 1.0, lo, hi), 1);
    EXPECT_EQ(lo + hi, 0);
    EXPECT_EQ(EtchModel::searchGrid({}, 1.0, lo, hi), 0);
}

TEST(EtchModel, MalformedTablesFailAndKeepTheCallersValue) {
    EtchModel m = asymmetricTable();
    EXPECT_EQ(m.modelOK(), 1);
    m.values.pop_back();  // 2 widths x 3 spacings with 5 values
    EXPECT_EQ(m.modelOK(), 0);
    double out = 42.0;
    EXPECT_EQ(m.evalEtch(1.0, 10.0, out), 0);
    EXPECT_EQ(m.evalEtchwPoly(1.0, 10.0, out), 0);
    EXPECT_EQ(EtchModel().evalEtch(1.0, 1.0, out), 0);
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

}  // namespace
