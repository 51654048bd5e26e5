// Pattern solving against a scripted solver, and the row constraint on its own.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "patterns/derived.h"
#include "patterns/solving.h"

using KARVEN::Matrix;

namespace {

struct RoleFamily : KARVEN::GenericStructure {
    explicit RoleFamily(std::vector<std::string> r) : GenericStructure("ROLES", AnyPair) {
        roles = std::move(r);
        window = 30.0;
    }
    KARVEN::ParameterSet getParameterSet(const KARVEN::Layers&) override { return {}; }
    KARVEN::Pattern actualStructure(const KARVEN::Layers&, const std::array<double, 4>&) override {
        return {};
    }
};

// What the scripted solver saw on its last call.
struct Seen {
    std::vector<KARVEN::Rect> wires;
    std::vector<std::array<double, 2>> layers;
    std::vector<KARVEN::ConformalRect> dielectrics;
    KARVEN::Rect window{};
    double precision = 0;
    int seed = 0;
};

class Solving : public testing::Test {
protected:
    void SetUp() override {
        ctf.appendConductor("M1", 0.2, 0.1);
        ctf.appendDielectric("D", 0.0, 1.0, 4.0);
        ctf.appendDielectric("C", 0.2, 0.0, 7.0, 0.01, 0.01, -1.0, {"M1"});
        ctf.appendDielectric("TOP", 1.0, 0.5, 3.0);
        ctf.finishStack();
        pattern.addConductor(0.0, 0.5, ctf.conductors[0]);
        pattern.addConductor(1.0, 1.5, ctf.conductors[0]);
        pattern.addConductor(2.0, 2.5, ctf.conductors[0]);
        pattern.addConductor(3.0, 3.5, ctf.conductors[0]);
    }
    // A solver that returns `values` and notes its arguments.
    KARVEN::FieldSolver returning(std::vector<double> values) {
        return [this, values](const std::vector<KARVEN::Rect>& w,
                              const std::vector<std::array<double, 2>>& l,
                              const std::vector<KARVEN::ConformalRect>& d, const KARVEN::Rect& win,
                              double p, int s) {
            seen = {w, l, d, win, p, s};
            return values;
        };
    }
    MCTF::MiniCTF ctf;
    KARVEN::Pattern pattern;
    Seen seen;
};

// The matrix of a solver that knows the true capacitances `K` of the pattern's conductors:
// called with any conductor first, it answers in the order it was given, plus variances.
KARVEN::FieldSolver knowing(const std::vector<KARVEN::Rect>& original, const Matrix& K,
                            const Matrix& variance, bool withVariances, bool extraValue) {
    return [=](const std::vector<KARVEN::Rect>& wires, const std::vector<std::array<double, 2>>&,
               const std::vector<KARVEN::ConformalRect>&, const KARVEN::Rect&, double, int) {
        auto index = [&](const KARVEN::Rect& r) {
            for (size_t i = 0; i < original.size(); ++i)
                if (original[i] == r) return i;
            return original.size();
        };
        size_t master = index(wires[0]);
        std::vector<double> r, v;
        for (const auto& w : wires) {
            r.push_back(K[master][index(w)]);
            v.push_back(variance[master][index(w)]);
        }
        if (withVariances) r.insert(r.end(), v.begin(), v.end());
        if (extraValue) r.push_back(123.0);
        return r;
    };
}

}  // namespace

TEST_F(Solving, DomainLayersCoatsAndSettingsReachTheSolver) {
    RoleFamily f({"a", "b", "c"});
    KARVEN::ExtractionConfig merged{1, 0.002, true, 17};
    KARVEN::solveRoles(f, pattern, ctf, merged, returning({1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(seen.window, (KARVEN::Rect{-15.0, 0.0, 15.0, 101.5}));
    ASSERT_EQ(seen.layers.size(), 3u);
    EXPECT_EQ(seen.layers[1], (std::array<double, 2>{1.0, 3.0}));
    EXPECT_TRUE(seen.dielectrics.empty());
    EXPECT_EQ(seen.wires, pattern.conductors);
    EXPECT_EQ(seen.precision, 0.002);
    EXPECT_EQ(seen.seed, 17);

    KARVEN::ExtractionConfig coated{1, 0.002, false, 17};
    KARVEN::solveRoles(f, pattern, ctf, coated, returning({1, 2, 3, 4, 5, 6, 7, 8}));
    ASSERT_EQ(seen.dielectrics.size(), 4u);
    KARVEN::Rect coat = seen.dielectrics[3].second;
    KARVEN::Rect want{2.99, 0.2, 3.51, 0.31};
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(coat[k], want[k], 1e-12);
}

TEST_F(Solving, RolesDropTheMasterAndFoldTheLastValueIntoThePreferredPlane) {
    KARVEN::ExtractionConfig config;
    auto solve = returning({9, -1, -2, -3, 0.1, 0.2, 0.3, 0.4});
    using V = std::vector<double>;
    EXPECT_EQ(KARVEN::solveRoles(RoleFamily({"l", "bottom", "r"}), pattern, ctf, config, solve),
              (V{-1, -2 + 0.4, -3}));
    EXPECT_EQ(KARVEN::solveRoles(RoleFamily({"closer_plane", "further_plane"}), pattern, ctf,
                                 config, solve),
              (V{-1, -2 + 0.4}));
    EXPECT_EQ(KARVEN::solveRoles(RoleFamily({"closer_plane", "x"}), pattern, ctf, config, solve),
              (V{-1 + 0.4, -2}));
    EXPECT_EQ(KARVEN::solveRoles(RoleFamily({"l", "r"}), pattern, ctf, config, solve),
              (V{-1, -2}));
}

TEST_F(Solving, FullMatrixPutsEachRowInPatternOrder) {
    // A symmetric matrix with zero row sums passes the constraint unchanged, so any mix-up of
    // rows or columns by the master swaps shows.
    Matrix K{{6, -1, -2, -3}, {-1, 5, -1.5, -2.5}, {-2, -1.5, 4.5, -1}, {-3, -2.5, -1, 6.5}};
    Matrix var(4, std::vector<double>(4, 1e-6));
    auto original = pattern.conductors;
    KARVEN::ExtractionConfig config;
    KARVEN::PatternResult r = KARVEN::solveFullMatrix(
        30.0, pattern, ctf, config, knowing(original, K, var, true, false));
    EXPECT_EQ(r.first, original);
    ASSERT_EQ(r.second.size(), 16u);
    for (size_t i = 0; i < 4; ++i)
        for (size_t j = 0; j < 4; ++j) EXPECT_NEAR(r.second[4 * i + j], K[i][j], 1e-12);
}

TEST_F(Solving, ResultOfNPlusOneValuesUsesThePlainMean) {
    pattern.conductors.resize(2);
    Matrix C{{3, -1}, {-2, 3}};
    Matrix var{{1, 1e-9}, {1, 1}};  // would favour -1 strongly if variances were used
    auto original = pattern.conductors;
    KARVEN::ExtractionConfig config{1, 0.5, true, 1};
    KARVEN::PatternResult r = KARVEN::solveFullMatrix(
        30.0, pattern, ctf, config, knowing(original, C, var, false, true));
    EXPECT_EQ(r.second, (std::vector<double>{1.5, -1.5, -1.5, 1.5}));
}

TEST(ConstrainMatrix, OneByOneWarnsAndZeroesTheDiagonal) {
    Matrix c{{2.0}};
    testing::internal::CaptureStdout();
    EXPECT_FALSE(KARVEN::constrain_matrix(c, 0.005));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[WARN]: row sums for 0/0 are too large: OLD: 2 vs 2 (100%), NEW: 2 vs 2 (100%)\n");
    EXPECT_EQ(c[0][0], 0.0);
    Matrix d{{2.0}};
    testing::internal::CaptureStdout();
    EXPECT_TRUE(KARVEN::constrain_matrix(d, 0.5));
    testing::internal::GetCapturedStdout();
}

TEST(ConstrainMatrix, ZeroVarianceInOneDirectionZeroesBothCouplings) {
    Matrix c{{1.0, -0.5, -0.2}, {-0.4, 1.0, -0.3}, {-0.2, -0.3, 1.0}};
    Matrix e{{1e-4, 0.0, 1e-4}, {2e-4, 1e-4, 1e-4}, {1e-4, 1e-4, 1e-4}};
    testing::internal::CaptureStdout();
    KARVEN::constrain_matrix(c, e, 0.005);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(c[0][1], 0.0);
    EXPECT_EQ(c[1][0], 0.0);
    EXPECT_DOUBLE_EQ(c[0][2], -0.2);
    EXPECT_DOUBLE_EQ(c[0][0], 0.2);  // the diagonal balances what is left of the row
    EXPECT_DOUBLE_EQ(c[1][1], 0.3);
}

TEST(ConstrainMatrix, AllZeroRowGivesNoWarningAndPasses) {
    Matrix c{{0.0, 0.0}, {0.0, 0.0}};
    testing::internal::CaptureStdout();
    EXPECT_TRUE(KARVEN::constrain_matrix(c, 0.005));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(c, (Matrix{{0.0, 0.0}, {0.0, 0.0}}));
}

TEST(ConstrainMatrix, VarianceWeightingFavoursTheBetterKnownValue) {
    // c01 = -1.0 is known to 1e-6, c10 = -2.0 only to 1e-2: the mean stays next to -1.0.
    Matrix c{{3.0, -1.0}, {-2.0, 3.0}};
    Matrix e{{1e-6, 1e-6}, {1e-2, 1e-6}};
    testing::internal::CaptureStdout();
    KARVEN::constrain_matrix(c, e, 0.005);
    testing::internal::GetCapturedStdout();
    double m = (1e-6 / (1e-6 + 1e-2)) * -2.0 + (1e-2 / (1e-6 + 1e-2)) * -1.0;
    EXPECT_NEAR(m, -1.0001, 1e-6);
    EXPECT_DOUBLE_EQ(c[0][1], m);
    EXPECT_DOUBLE_EQ(c[1][0], m);
    EXPECT_DOUBLE_EQ(c[0][0], -m);
}

TEST(ConstrainMatrix, ToleranceDecidesTheResultAndWarningsFollowThreePercent) {
    // Plain means: c01 = -1.05, c02 = -2.0, c12 = -1.5. Row 0 sums to 0.1 before (3.3% of 3:
    // warned) and to -0.05 after (1.7%); row 2 sums to 0.2 after (5.4% of 3.7), which fails a
    // tolerance of 0.005 (limit 1%) and passes 0.03 (limit 6%).
    Matrix base{{3, -1, -1.9}, {-1.1, 2.5, -1.4}, {-2.1, -1.6, 3.7}};
    Matrix c = base;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(KARVEN::constrain_matrix(c, 0.005));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("[WARN]: row sums for 0/2 are too large: OLD: 0.1 vs 3 (", 0), 0u) << out;
    EXPECT_DOUBLE_EQ(c[0][0], 3.05);
    EXPECT_DOUBLE_EQ(c[1][1], 2.55);
    EXPECT_DOUBLE_EQ(c[2][2], 3.5);
    for (const auto& row : c) EXPECT_NEAR(row[0] + row[1] + row[2], 0.0, 1e-12);
    Matrix looser = base;
    testing::internal::CaptureStdout();
    bool passed = KARVEN::constrain_matrix(looser, 0.03);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(passed);
    testing::internal::CaptureStdout();
    testing::internal::GetCapturedStdout();
}
