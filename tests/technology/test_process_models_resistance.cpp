// Resistance models: reciprocal interpolation against hand computations, the sheet-resistance
// and via-resistance lookups with their edges.
#include <gtest/gtest.h>

#include <memory>

#include "technology/process_model_resistance.h"

TEST(ReciprocalInterpolation, HandComputedValuesAndFailures) {
    // Linear axis: t = 0.5, conductance 1/2 - 0.5 (1/2 - 1/6) = 1/3.
    EXPECT_NEAR(reciprocalInterpolation(1.0, 3.0, 2.0, 6.0, 2.0, 0), 3.0, 1e-12);
    // Inverse axis: t = (1/2 - 1) / (1/3 - 1) = 0.75, conductance 1/2 - 0.75 / 3 = 1/4.
    EXPECT_NEAR(reciprocalInterpolation(1.0, 3.0, 2.0, 6.0, 2.0, 1), 4.0, 1e-12);
    EXPECT_NEAR(reciprocalInterpolation(1.0, 3.0, 2.0, 6.0, 1.0, 1), 2.0, 1e-12);
    EXPECT_NEAR(reciprocalInterpolation(1.0, 3.0, 2.0, 6.0, 3.0, 0), 6.0, 1e-12);

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
    EXPECT_DOUBLE_EQ(m.getRPSQ(1.0, 3.0), 6.0);
    EXPECT_DOUBLE_EQ(m.getRPSQ(3.0, 1.0), 4.0);
    EXPECT_NEAR(m.getRPSQ(1.0, 2.0), 3.0, 1e-12);
    // Row w=3 at s=2: conductance 1/4 - 0.5 (1/4 - 1/12) = 1/6.
    EXPECT_NEAR(m.getRPSQ(3.0, 2.0), 6.0, 1e-12);
    // Between 3 and 6 on 1/w at t = 0.75: conductance 1/3 - 0.75 (1/3 - 1/6) = 5/24.
    EXPECT_NEAR(m.getRPSQ(2.0, 2.0), 24.0 / 5.0, 1e-12);
    EXPECT_NEAR(m.getRPSQ(9.0, 0.0), 4.0, 1e-12);

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
    EXPECT_DOUBLE_EQ(m.getRPV(1.0, 4.0), 2.0);
    EXPECT_DOUBLE_EQ(m.getRPV(2.0, 1.0), 4.0);
    EXPECT_DOUBLE_EQ(m.getRPV(1.5, 1.0), 6.0);
    EXPECT_DOUBLE_EQ(m.getRPV(1.5, 2.5), 3.75);  // mean of the corners 8, 2, 4, 1
    EXPECT_DOUBLE_EQ(m.getRPV(4.0, 1.0), 2.0);   // 4 * 2 / 4
    EXPECT_DOUBLE_EQ(m.getRPV(4.0, 8.0), 0.25);  // 1 * (2 / 4) * (4 / 8)
    EXPECT_DOUBLE_EQ(m.getRPV(0.5, 1.0), 16.0);  // 8 * 1 / 0.5
    m.values.pop_back();
    EXPECT_EQ(m.getRPV(1.0, 1.0), -1.0);
}
