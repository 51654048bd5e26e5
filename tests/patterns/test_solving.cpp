// Pattern solving against scripted solvers, and the row constraint on its own.
#include "pattern_test_util.h"
#include "patterns/solving.h"

using KARVEN::Matrix;
using ptest::quiet;

namespace {

using Layer = std::array<double, 2>;

class Solving : public testing::Test {
protected:
    void SetUp() override {
        ctf.appendConductor("M1", 0.2, 0.1);
        ctf.appendDielectric("D", 0.0, 1.0, 4.0);
        ctf.appendDielectric("C", 0.2, 0.0, 7.0, 0.01, 0.01, -1.0, {"M1"});
        ctf.appendDielectric("TOP", 1.0, 0.5, 3.0);
        ctf.finishStack();
        for (double x : {0.0, 1.0, 2.0, 3.0}) pattern.addConductor(x, x + 0.5, ctf.conductors[0]);
    }
    MCTF::MiniCTF ctf;
    KARVEN::Pattern pattern;
};

// A solver that knows the true matrix K of `original`: called with any conductor first, it
// answers in the order it was given, then the variances, then optionally one extra value.
KARVEN::FieldSolver knowing(const std::vector<KARVEN::Rect>& original, const Matrix& K,
                            const Matrix& var, bool withVariances, bool extraValue) {
    return [=](const std::vector<KARVEN::Rect>& w, const std::vector<Layer>&,
               const std::vector<KARVEN::ConformalRect>&, const KARVEN::Rect&, double, int) {
        auto index = [&](const KARVEN::Rect& r) {
            return std::find(original.begin(), original.end(), r) - original.begin();
        };
        const auto m = index(w[0]);
        std::vector<double> r, v;
        for (const auto& x : w) r.push_back(K[m][index(x)]), v.push_back(var[m][index(x)]);
        if (withVariances) r.insert(r.end(), v.begin(), v.end());
        if (extraValue) r.push_back(123.0);
        return r;
    };
}

// Runs the two-argument or the variance form of the constraint; returns {passed, printed}.
std::pair<bool, std::string> constrain(Matrix& c, double tol, const Matrix* var = nullptr) {
    bool ok = false;
    std::string out = quiet([&] {
        ok = var ? KARVEN::constrain_matrix(c, *var, tol) : KARVEN::constrain_matrix(c, tol);
    });
    return {ok, out};
}

}  // namespace

TEST_F(Solving, RowsInPatternOrderAndThePlateRowIsTheWiresColumnUnlessSolved) {
    // The plate's own solve (last row) disagrees with the wires' column; the wire rows are
    // symmetric and distinct, so any mix-up of rows or columns by the master swaps shows.
    Matrix K{{6, -1, -2, -3}, {-1, 5, -1.5, -2.5}, {-2, -1.5, 4.5, -1}, {-4, -3, -2, 9}};
    Matrix V(4, std::vector<double>(4, 1e-6));
    V[0][3] = 3e-6;  // weights 1/4 for K[0][3] and 3/4 for K[3][0] when the plate is solved
    const auto original = pattern.conductors;
    std::vector<KARVEN::Rect> masters;
    const KARVEN::FieldSolver inner = knowing(original, K, V, true, false);
    const KARVEN::FieldSolver spy = [&](const std::vector<KARVEN::Rect>& w, const auto& l,
                                        const auto& d, const KARVEN::Rect& win, double p, int s) {
        masters.push_back(w[0]);
        return inner(w, l, d, win, p, s);
    };
    auto at = [](const KARVEN::PatternResult& r, size_t i, size_t j) {
        return r.second[i * 4 + j];
    };

    auto derived = KARVEN::solveFullMatrix(30.0, pattern, ctf, {}, spy);
    EXPECT_EQ(derived.first, original);
    ASSERT_EQ(masters.size(), 3u);  // the plate is never a master
    EXPECT_EQ(std::count(masters.begin(), masters.end(), original[3]), 0);
    // Plate row = column: -3, -2.5, -1, and the diagonal closes the row (6.5); the constraint
    // changes nothing else.
    K[3] = {-3, -2.5, -1, 6.5};
    ASSERT_EQ(derived.second.size(), 16u);
    for (size_t i = 0; i < 16; ++i) EXPECT_DOUBLE_EQ(derived.second[i], K[i / 4][i % 4]) << i;

    masters.clear();
    pattern.conductors = original;  // the first solve moved the conductors into its result
    auto solved = KARVEN::solveFullMatrix(30.0, pattern, ctf, {}, spy, KARVEN::PlateRow::Solved);
    ASSERT_EQ(masters.size(), 4u);
    EXPECT_EQ(masters[3], original[3]);
    EXPECT_DOUBLE_EQ(at(solved, 3, 0), 0.25 * -3 + 0.75 * -4);
    EXPECT_DOUBLE_EQ(at(solved, 3, 1), -2.75);
    EXPECT_DOUBLE_EQ(at(solved, 3, 2), -1.5);
    EXPECT_DOUBLE_EQ(at(solved, 3, 3), 3.75 + 2.75 + 1.5);

    // n + 1 values (no variances): plain means, though these variances would favour -1.
    pattern.conductors = {original[0], original[1]};
    const auto plain = KARVEN::solveFullMatrix(
        30.0, pattern, ctf, {1, 0.5, true, 1},
        knowing(pattern.conductors, {{3, -1}, {-2, 3}}, {{1, 1e-9}, {1, 1}}, false, true),
        KARVEN::PlateRow::Solved);
    EXPECT_EQ(plain.second, (std::vector<double>{1.5, -1.5, -1.5, 1.5}));
}

TEST(DerivePlateRow, ColumnWithVariancesAndZeroRowSum) {
    Matrix c{{4, -1, -2.5}, {-1.25, 3, -1.5}, {99, 99, 99}};
    Matrix v{{0.1, 0.2, 0.3}, {0.4, 0.5, 0.6}, {9, 9, 9}};
    KARVEN::derivePlateRow(c, v);
    EXPECT_EQ(c[2], (std::vector<double>{-2.5, -1.5, 4.0}));
    EXPECT_DOUBLE_EQ(v[2][0], 0.3);
    EXPECT_DOUBLE_EQ(v[2][1], 0.6);
    EXPECT_DOUBLE_EQ(v[2][2], 0.9);
    // Without variances (the external route) only the values change; one row is left alone.
    Matrix none, d{{4, -1}, {7, 7}}, one{{5}};
    KARVEN::derivePlateRow(d, none);
    EXPECT_EQ(d[1], (std::vector<double>{-1, 1}));
    EXPECT_TRUE(none.empty());
    KARVEN::derivePlateRow(one, none);
    EXPECT_EQ(one, (Matrix{{5}}));
}

TEST(ConstrainMatrix, OneByOneAndAllZeroRows) {
    Matrix c{{2.0}};
    EXPECT_EQ(constrain(c, 0.005),
              std::make_pair(false, std::string("[WARN]: row sums for 0/0 are too large: OLD: 2 "
                                                "vs 2 (100%), NEW: 2 vs 2 (100%)\n")));
    EXPECT_EQ(c[0][0], 0.0);
    Matrix d{{2.0}};
    EXPECT_TRUE(constrain(d, 0.5).first);
    Matrix zero{{0.0, 0.0}, {0.0, 0.0}};
    EXPECT_EQ(constrain(zero, 0.005), std::make_pair(true, std::string()));
    EXPECT_EQ(zero, (Matrix{{0.0, 0.0}, {0.0, 0.0}}));
}

TEST(ConstrainMatrix, VariancesWeighTheMeanAndAZeroOneZeroesBothCouplings) {
    Matrix c{{1.0, -0.5, -0.2}, {-0.4, 1.0, -0.3}, {-0.2, -0.3, 1.0}};
    Matrix e{{1e-4, 0.0, 1e-4}, {2e-4, 1e-4, 1e-4}, {1e-4, 1e-4, 1e-4}};
    constrain(c, 0.005, &e);
    EXPECT_EQ(c[0][1], 0.0);
    EXPECT_EQ(c[1][0], 0.0);
    EXPECT_DOUBLE_EQ(c[0][2], -0.2);
    EXPECT_DOUBLE_EQ(c[0][0], 0.2);  // the diagonal balances what is left of the row
    EXPECT_DOUBLE_EQ(c[1][1], 0.3);

    // c01 = -1 known to 1e-6, c10 = -2 only to 1e-2: the inverse-variance mean
    // (-1/1e-6 - 2/1e-2) / (1/1e-6 + 1/1e-2) = -1.0001 stays next to -1.
    Matrix d{{3.0, -1.0}, {-2.0, 3.0}};
    Matrix v{{1e-6, 1e-6}, {1e-2, 1e-6}};
    constrain(d, 0.005, &v);
    EXPECT_NEAR(d[0][1], -1.0001, 1e-6);
    EXPECT_EQ(d[1][0], d[0][1]);
    EXPECT_DOUBLE_EQ(d[0][0], -d[0][1]);
}

TEST(ConstrainMatrix, ToleranceDecidesTheResultAndWarningsFollowThreePercent) {
    // Plain means: c01 = -1.05, c02 = -2.0, c12 = -1.5. Row 0 sums to 0.1 before (3.3% of 3:
    // warned) and to -0.05 after (1.7%); row 2 sums to 0.2 after (5.4% of 3.7), which fails a
    // tolerance of 0.005 (limit 1%) and passes 0.03 (limit 6%).
    const Matrix base{{3, -1, -1.9}, {-1.1, 2.5, -1.4}, {-2.1, -1.6, 3.7}};
    Matrix c = base;
    auto [ok, out] = constrain(c, 0.005);
    EXPECT_FALSE(ok);
    EXPECT_EQ(out.rfind("[WARN]: row sums for 0/2 are too large: OLD: 0.1 vs 3 (", 0), 0u) << out;
    EXPECT_DOUBLE_EQ(c[0][0], 3.05);
    EXPECT_DOUBLE_EQ(c[1][1], 2.55);
    EXPECT_DOUBLE_EQ(c[2][2], 3.5);
    for (const auto& row : c) EXPECT_NEAR(row[0] + row[1] + row[2], 0.0, 1e-12);
    Matrix looser = base;
    EXPECT_TRUE(constrain(looser, 0.03).first);
}
