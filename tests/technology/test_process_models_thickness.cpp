#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <tuple>
#include <vector>

#include "tech_test_util.h"
#include "technology/process_model_thickness.h"

namespace {

using tech_test::near;

// A density source with a fixed density per window size, recording what it is asked.
class FixedDensity : public DensitySource {
public:
    std::map<int32_t, double> by_box;
    mutable std::vector<std::tuple<int32_t, int32_t, int32_t>> calls;

    double getDensity(int32_t x, int32_t y, int32_t box) const override {
        calls.emplace_back(x, y, box);
        auto it = by_box.find(box);
        return it == by_box.end() ? 0.0 : it->second;
    }
};

}  // namespace

TEST(ThicknessDensityModel, FactorHeldAtTheTableEnds) {
    ThicknessDensityModel m;
    EXPECT_DOUBLE_EQ(m.getThicknessByDensity(0.5), 1.0);  // empty: no change
    m.setDensityTable({{0.2, -0.1}, {0.6, 0.1}});
    EXPECT_TRUE(near(
        {m.getThicknessByDensity(0.1), m.getThicknessByDensity(0.2), m.getThicknessByDensity(0.5),
         m.getThicknessByDensity(0.6), m.getThicknessByDensity(0.95)},
        {0.9, 0.9, 1.05, 1.1, 1.1}));
}

TEST(ThicknessDensityModel, DefaultBoxAndScaling) {
    ThicknessDensityModel m;
    m.setDensityTable({{0.0, 0.0}});
    ASSERT_EQ(m.boxes.size(), 1u);
    EXPECT_DOUBLE_EQ(m.boxes[0].first, 50.0);
    EXPECT_DOUBLE_EQ(m.boxes[0].second, 1.0);
    m.setDBU(0.001);
    ASSERT_EQ(m.scaled_boxes.size(), 1u);
    EXPECT_EQ(m.scaled_boxes[0].first, 50000);

    ThicknessDensityModel given;
    given.boxes = {{0.0255, 0.5}, {0.0244, 0.5}};
    given.setDensityTable({{0.0, 0.0}});
    EXPECT_EQ(given.boxes.size(), 2u);  // no default box added
    given.setDBU(0.01);
    EXPECT_EQ(given.scaled_boxes[0].first, 3);  // 2.55 rounds up
    EXPECT_EQ(given.scaled_boxes[1].first, 2);  // 2.44 rounds down
}

TEST(ThicknessDensityModel, SumsWeightedWindowDensities) {
    ThicknessDensityModel m;
    m.boxes = {{1.0, 0.25}, {2.0, 0.75}};
    m.setDensityTable({{0.2, -0.1}, {0.6, 0.1}});
    m.setDBU(0.001);
    FixedDensity map;
    map.by_box = {{1000, 0.3}, {2000, 0.5}};
    // d = 0.25 * 0.3 + 0.75 * 0.5 = 0.45; factor = 1 - 0.1 + (0.25 / 0.4) * 0.2.
    EXPECT_DOUBLE_EQ(m.getThickness(123, -45, map), 1.025);
    ASSERT_EQ(map.calls.size(), 2u);
    EXPECT_EQ(map.calls[0], std::make_tuple(123, -45, 1000));
    EXPECT_EQ(map.calls[1], std::make_tuple(123, -45, 2000));

    std::unique_ptr<ThicknessDensityModel> c(m.clone());
    m.reset();
    EXPECT_TRUE(m.table.empty());
    EXPECT_DOUBLE_EQ(c->getThickness(0, 0, map), 1.025);
}

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

namespace {

// Linear in density and width: 0.01 + 0.02 w + d (0.03 + 0.04 w).
ThicknessPolynomialModel bilinearPolynomial() {
    ThicknessPolynomialModel m;
    m.density_orders = {0, 1};
    m.width_orders = {0, 1};
    m.coefficients = {{0.01, 0.02, 0.03, 0.04}};
    return m;
}

// out = 0.1 * density, with the width only clamping.
ThicknessPolynomialModel densityOnly() {
    ThicknessPolynomialModel m;
    m.density_orders = {1};
    m.width_orders = {0};
    m.coefficients = {{0.1}};
    return m;
}

double thickness(const ThicknessPolynomialModel& m, double d, double w, double nominal = 0.0) {
    double out = -999.0;
    EXPECT_EQ(m.getThickness(d, w, out, nominal), 1);
    return out;
}

}  // namespace

TEST(ThicknessPolynomialModel, EvaluatesThePolynomial) {
    const ThicknessPolynomialModel m = bilinearPolynomial();
    // 0.01 + 0.04 + 0.5 * (0.03 + 0.08)
    EXPECT_NEAR(thickness(m, 0.5, 2.0), 0.105, 1e-15);

    ThicknessPolynomialModel square;
    square.density_orders = {2};
    square.width_orders = {-1};
    square.coefficients = {{0.2}};
    EXPECT_NEAR(thickness(square, 0.5, 4.0), 0.2 * 0.25 / 4.0, 1e-15);
}

TEST(ThicknessPolynomialModel, ChangeIsBoundedByMaxChangeOrThicknessBounds) {
    ThicknessPolynomialModel big;
    big.density_orders = {0};
    big.width_orders = {0};
    big.coefficients = {{1.0}};
    EXPECT_DOUBLE_EQ(thickness(big, 0.5, 1.0), 0.4);
    big.coefficients = {{-1.0}};
    EXPECT_DOUBLE_EQ(thickness(big, 0.5, 1.0), -0.4);

    ThicknessPolynomialModel m = bilinearPolynomial();
    m.setThicknessBounds(0.9, 1.05);
    double lo = 0, hi = 0;
    ASSERT_EQ(m.getThicknessBounds(lo, hi), 1);
    EXPECT_DOUBLE_EQ(lo, 0.9);
    EXPECT_DOUBLE_EQ(hi, 1.05);
    // 1.105 times nominal 1 is cut to 1.05.
    EXPECT_NEAR(thickness(m, 0.5, 2.0, 1.0), 0.05, 1e-12);
    // nominal 2: 2.21 is cut to 1.05 -> 1.05 / 2 - 1.
    EXPECT_NEAR(thickness(m, 0.5, 2.0, 2.0), -0.475, 1e-12);
    // no nominal: the bounds do not apply.
    EXPECT_NEAR(thickness(m, 0.5, 2.0, 0.0), 0.105, 1e-15);
    EXPECT_EQ(bilinearPolynomial().getThicknessBounds(lo, hi), 0);
}

TEST(ThicknessPolynomialModel, WidthRangesPickTheCoefficientTable) {
    ThicknessPolynomialModel m;
    m.density_orders = {0};
    m.width_orders = {0};
    m.width_ranges = {1.0, 2.0};
    m.coefficients = {{0.1}, {0.2}, {0.3}};
    // At the break point 1 the lower table applies.
    EXPECT_TRUE(near({thickness(m, 0.5, 0.5), thickness(m, 0.5, 1.0), thickness(m, 0.5, 1.5),
                      thickness(m, 0.5, 7.0)},
                     {0.1, 0.1, 0.2, 0.3}));

    m.coefficients.pop_back();
    double out = 5.0;
    EXPECT_EQ(m.getThickness(0.5, 7.0, out, 0.0), 0);
    EXPECT_DOUBLE_EQ(out, 5.0);
    m.coefficients = {{}, {}};
    EXPECT_EQ(m.getThickness(0.5, 0.5, out, 0.0), 0);
}

TEST(ThicknessPolynomialModel, WidthRangeClampsTheWidth) {
    ThicknessPolynomialModel m;
    m.density_orders = {0};
    m.width_orders = {1};
    m.coefficients = {{0.01}};
    m.setWidthRange(1.0, 3.0);
    EXPECT_TRUE(near({thickness(m, 0.5, 5.0), thickness(m, 0.5, 0.2), thickness(m, 0.5, 2.0)},
                     {0.03, 0.01, 0.02}));

    // The raw width picks the table when asked to, the clamped one by default.
    m.width_ranges = {4.0};
    m.coefficients = {{0.01}, {0.02}};
    EXPECT_DOUBLE_EQ(thickness(m, 0.5, 5.0), 0.03);
    m.select_by_raw_width = 1;
    EXPECT_DOUBLE_EQ(thickness(m, 0.5, 5.0), 0.06);
}

TEST(ThicknessPolynomialModel, DensityClampedByWidthAndSpacingRanges) {
    ThicknessPolynomialModel m = densityOnly();
    m.setWidthRange(1.0, 2.0);
    m.setSpacingRange(1.0, 3.0);
    // Density range 1/(1+1) = 0.5 to 2/(2+3) = 0.4.
    EXPECT_TRUE(near({thickness(m, 0.9, 1.5), thickness(m, 0.1, 1.5), thickness(m, 0.45, 1.5)},
                     {0.05, 0.04, 0.045}));

    // Spacing range only: the density range follows the width itself, 1/(1+1) to 1/(1+3).
    ThicknessPolynomialModel s = densityOnly();
    s.setSpacingRange(1.0, 3.0);
    // A width of 5e-5 is too narrow to bound.
    EXPECT_TRUE(near({thickness(s, 0.9, 1.0), thickness(s, 0.1, 1.0), thickness(s, 0.9, 0.00005)},
                     {0.05, 0.025, 0.09}));
}

TEST(ThicknessPolynomialModel, DensityBoundsVsWidth) {
    ThicknessPolynomialModel m = densityOnly();
    m.bound_widths = {1.0, 3.0};
    m.bound_densities = {{0.1, 0.5}, {0.3, 0.7}};
    std::vector<double> bounds;
    for (double w : {2.0, 0.5, 4.0}) {
        const auto b = m.getDensityBounds(w);
        bounds.insert(bounds.end(), {b.first, b.second});
    }
    EXPECT_TRUE(near(bounds, {0.2, 0.6, 0.1, 0.5, 0.3, 0.7}));
    EXPECT_TRUE(near({thickness(m, 0.9, 2.0), thickness(m, 0.0, 2.0)}, {0.06, 0.02}));
    // The bound rows win over a spacing range.
    m.setSpacingRange(1.0, 3.0);
    EXPECT_DOUBLE_EQ(thickness(m, 0.9, 2.0), 0.06);
}

TEST(ThicknessPolynomialModel, DefaultBoxAtScalingAndDeepClone) {
    ThicknessPolynomialModel m = bilinearPolynomial();
    m.setDBU(0.001);
    ASSERT_EQ(m.scaled_boxes.size(), 1u);
    EXPECT_EQ(m.scaled_boxes[0].first, 50000);
    EXPECT_DOUBLE_EQ(m.scaled_boxes[0].second, 1.0);

    std::unique_ptr<ThicknessPolynomialModel> c(m.clone());
    m.reset();
    EXPECT_TRUE(m.coefficients.empty());
    EXPECT_DOUBLE_EQ(m.max_change, 0.4);
    EXPECT_NEAR(thickness(*c, 0.5, 2.0), 0.105, 1e-15);
}
