// Thickness models: the density-and-width table with its density window, and the polynomial with
// its change limits; expected values worked out by hand.
#include <gtest/gtest.h>

#include <map>

#include "technology/process_model_thickness.h"

namespace {

// A density source with a fixed density per window size.
class FixedDensity : public DensitySource {
public:
    std::map<int32_t, double> by_box;

    double getDensity(int32_t, int32_t, int32_t box) const override {
        auto it = by_box.find(box);
        return it == by_box.end() ? 0.0 : it->second;
    }
};

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

namespace {

// Linear in density and width: 0.01 + 0.02 w + d (0.03 + 0.04 w).
ThicknessPolynomialModel bilinearPolynomial() {
    ThicknessPolynomialModel m;
    m.density_orders = {0, 1};
    m.width_orders = {0, 1};
    m.coefficients = {{0.01, 0.02, 0.03, 0.04}};
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
    // 1.105 times nominal 1 is cut to 1.05.
    EXPECT_NEAR(thickness(m, 0.5, 2.0, 1.0), 0.05, 1e-12);
    // nominal 2: 2.21 is cut to 1.05 -> 1.05 / 2 - 1.
    EXPECT_NEAR(thickness(m, 0.5, 2.0, 2.0), -0.475, 1e-12);
    // no nominal: the bounds do not apply.
    EXPECT_NEAR(thickness(m, 0.5, 2.0, 0.0), 0.105, 1e-15);
}
