// The pattern model: coats growing around wires, their flattening, and the family factory.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "patterns/generic.h"
#include "technology/minictf.h"

namespace {

// M1 (0.2-0.3) with two coats: CA (side 0.01, top 0.02), CB (top only, 0.05);
// M2 (0.5-0.6) with none; a coat with no thickness on M1 that must be skipped.
class CoatedStack : public testing::Test {
protected:
    void SetUp() override {
        ctf.appendConductor("M1", 0.2, 0.1);
        ctf.appendConductor("M2", 0.5, 0.1);
        ctf.appendDielectric("IMD", 0.0, 1.0, 4.0);
        ctf.appendDielectric("CA", 0.2, 0.0, 7.0, 0.01, 0.02, -1.0, {"M1"});
        ctf.appendDielectric("NONE", 0.2, 0.0, 5.0, 0.0, 0.0, -1.0, {"M1"});
        ctf.appendDielectric("CB", 0.2, 0.0, 3.0, 0.0, 0.05, -1.0, {"M1"});
        ctf.finishStack();
    }
    MCTF::MiniCTF ctf;
};

void expectRect(const KARVEN::Rect& r, double x0, double y0, double x1, double y1) {
    EXPECT_NEAR(r[0], x0, 1e-12);
    EXPECT_NEAR(r[1], y0, 1e-12);
    EXPECT_NEAR(r[2], x1, 1e-12);
    EXPECT_NEAR(r[3], y1, 1e-12);
}

}  // namespace

TEST_F(CoatedStack, CoatsGrowOutwardLayerByLayerFromTheWireBottom) {
    KARVEN::Pattern p;
    p.addConductor(1.0, 1.5, ctf.conductors[0]);
    ASSERT_EQ(p.conductors.size(), 1u);
    expectRect(p.conductors[0], 1.0, 0.2, 1.5, 0.3);
    // CA is id 1, NONE (id 2) adds no entry, CB is id 3.
    ASSERT_EQ(p.conformal_rects.size(), 2u);
    ASSERT_EQ(p.conformal_rects.count(2), 0u);
    const auto& ca = p.conformal_rects.at(1);
    ASSERT_EQ(ca.size(), 1u);
    EXPECT_EQ(ca[0].first, 7.0);
    expectRect(ca[0].second, 0.99, 0.2, 1.51, 0.32);
    const auto& cb = p.conformal_rects.at(3);  // top only: sides unchanged from CA's
    EXPECT_EQ(cb[0].first, 3.0);
    expectRect(cb[0].second, 0.99, 0.2, 1.51, 0.37);
}

TEST_F(CoatedStack, WiresOfOneLayerShareKeysAndBareLayersAddNone) {
    KARVEN::Pattern p;
    p.addConductor(1.0, 1.5, ctf.conductors[0]);
    p.addConductor(-0.5, 0.0, ctf.conductors[1]);
    EXPECT_EQ(p.conformal_rects.size(), 2u);
    p.addConductor(3.0, 3.2, ctf.conductors[0]);
    ASSERT_EQ(p.conformal_rects.at(1).size(), 2u);
    expectRect(p.conformal_rects.at(1)[1].second, 2.99, 0.2, 3.21, 0.32);
    EXPECT_EQ(p.conductors.size(), 3u);

    auto flat = p.flattenConformals();
    ASSERT_EQ(flat.size(), 4u);  // both CA coats, then both CB coats
    EXPECT_EQ(flat[0].first, 7.0);
    EXPECT_EQ(flat[1].first, 7.0);
    EXPECT_EQ(flat[2].first, 3.0);
    expectRect(flat[3].second, 2.99, 0.2, 3.21, 0.37);
}

TEST(PatternFactory, FindsRandomAndIsCaseSensitive) {
    auto names = KARVEN::PatternFactory::names();
    EXPECT_NE(std::find(names.begin(), names.end(), "Random"), names.end());
    auto family = KARVEN::PatternFactory::create("Random");
    ASSERT_NE(family, nullptr);
    EXPECT_EQ(family->name, "Random");
    EXPECT_EQ(family->window, 100.0);
    try {
        KARVEN::PatternFactory::create("random");
        FAIL() << "lookup must be case-sensitive";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "Unknown type: random");
    }
}
