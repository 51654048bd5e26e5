// The reduced stack: building it, its plate profile, and merging plates across conductors.
// Expected plates are worked out by hand from the layer heights.
#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "technology/minictf.h"

using Plates = std::vector<std::pair<double, double>>;

namespace {

void expectPlates(const MCTF::MiniCTF& ctf, const Plates& want) {
    ASSERT_EQ(ctf.plates.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_NEAR(ctf.plates[i].first, want[i].first, 1e-9) << "plate " << i;
        EXPECT_NEAR(ctf.plates[i].second, want[i].second, 1e-12) << "plate " << i;
    }
}

void expectThrowText(const std::function<void()>& f, const std::string& text) {
    try {
        f();
        FAIL() << "expected \"" << text << "\"";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), text);
    }
}

}  // namespace

TEST(MiniCtfStack, BuildsSubstratePointersPlatesAndCoats) {
    MCTF::MiniCTF ctf;
    ctf.appendConductor("M1", 0.3, 0.1, 0.05, 0.06, 0.1);
    ctf.appendConductor("M2", 0.6, 0.2);
    ctf.appendDielectric("IMD1", 0.0, 0.5, 4.0);
    ctf.appendDielectric("CONF", 0.4, 0.0, 7.0, 0.01, 0.02, -1.0, {"M1", "M2"});
    ctf.appendDielectric("IMD2", 0.5, 0.5, 2.5);
    ctf.finishStack();

    EXPECT_EQ(ctf.substrate_ref, &ctf.substrate);
    EXPECT_EQ(ctf.substrate.id, -1);
    EXPECT_EQ(ctf.substrate.name, "substrate");
    EXPECT_DOUBLE_EQ(ctf.substrate.z_bottom, -0.1);
    EXPECT_DOUBLE_EQ(ctf.substrate.z_top, 0.0);

    ASSERT_EQ(ctf.conductors.size(), 2u);
    EXPECT_EQ(ctf.conductors[1]->id, 1);
    EXPECT_DOUBLE_EQ(ctf.conductors[0]->z_top, 0.4);
    EXPECT_DOUBLE_EQ(ctf.conductors[0]->wmin, 0.05);
    // The zero-thickness coat stands in the lists but gives no plate.
    ASSERT_EQ(ctf.dielectrics.size(), 3u);
    ASSERT_EQ(ctf.conductors[0]->conformals.size(), 1u);
    EXPECT_EQ(ctf.conductors[0]->conformals[0]->name, "CONF");
    EXPECT_EQ(ctf.dielectrics[1]->bottoms.size(), 2u);
    expectPlates(ctf, {{0.0, 4.0}, {0.5, 2.5}, {1.0, 1.0}});
}

TEST(MiniCtfStack, TopComesFromTheLastDielectricEvenWithoutThickness) {
    MCTF::MiniCTF ctf;
    ctf.appendConductor("M1", 0.3, 0.1);
    ctf.appendDielectric("IMD1", 0.0, 0.5, 4.0);
    ctf.appendDielectric("COAT", 0.2, 0.0, 7.0, 0.01, 0.01, -1.0, {"M1"});
    ctf.finishStack();
    expectPlates(ctf, {{0.0, 4.0}, {0.2, 1.0}});
}

TEST(MiniCtfStack, RejectsUnknownCoatedLayerAndMissingDielectrics) {
    MCTF::MiniCTF ctf;
    ctf.appendConductor("M1", 0.3, 0.1);
    expectThrowText([&] { ctf.appendDielectric("COAT", 0.3, 0.0, 7.0, 0.0, 0.0, -1.0, {"M9"}); },
                    "Dielectric layer \"COAT\" coats \"M9\", which is not a conductor layer");
    MCTF::MiniCTF bare;
    bare.appendConductor("M1", 0.3, 0.1);
    EXPECT_THROW(bare.finishStack(), std::runtime_error);
}

class MergePlate : public testing::Test {
protected:
    // Three plates 0-1 (er 4), 1-2 (er 2), 2-3 (er 3) under air.
    void SetUp() override {
        ctf.appendDielectric("D0", 0.0, 1.0, 4.0);
        ctf.appendDielectric("D1", 1.0, 1.0, 2.0);
        ctf.appendDielectric("D2", 2.0, 1.0, 3.0);
    }
    MCTF::MiniCTF ctf;
};

TEST_F(MergePlate, ConductorAcrossSeveralPlatesGetsTheThicknessWeightedMean) {
    ctf.appendConductor("M1", 0.5, 2.0);  // 0.5-2.5: 0.5 of er 4, 1.0 of er 2, 0.5 of er 3
    ctf.finishStack();
    ctf.mergePlate();
    expectPlates(ctf, {{0.0, 4.0}, {0.5, (0.5 * 4 + 1.0 * 2 + 0.5 * 3) / 2.0}, {2.5, 3.0}, {3.0, 1.0}});
}

TEST_F(MergePlate, LaterConductorsSeeTheEarlierMerges) {
    ctf.appendConductor("M1", 0.5, 1.0);  // 0.5-1.5 -> (0.5*4 + 0.5*2) = 3.0
    ctf.appendConductor("M2", 1.0, 1.5);  // 1.0-2.5 over 0.5-1.5 (3.0) and 1.5-2 (2) and 2-2.5 (3)
    ctf.finishStack();
    ctf.mergePlate();
    double m2 = (0.5 * 3.0 + 0.5 * 2.0 + 0.5 * 3.0) / 1.5;
    expectPlates(ctf, {{0.0, 4.0}, {0.5, 3.0}, {1.0, m2}, {2.5, 3.0}, {3.0, 1.0}});
}

TEST_F(MergePlate, ConductorReachingThroughTheTopMovesTheMarker) {
    ctf.appendConductor("M1", 2.5, 1.0);  // 2.5-3.5: only 0.5 of er 3 lies inside the stack
    ctf.finishStack();
    ctf.mergePlate();
    expectPlates(ctf, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {2.5, 3.0}, {3.5, 1.0}});
}

TEST_F(MergePlate, ConductorEndingAtTheTopKeepsTheMarkerThere) {
    ctf.appendConductor("M1", 2.5, 0.5);
    ctf.finishStack();
    ctf.mergePlate();
    expectPlates(ctf, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {2.5, 3.0}, {3.0, 1.0}});
}

TEST_F(MergePlate, EqualKeysOnABoundaryLeaveThePlateAbove) {
    ctf.appendConductor("M1", 1.0, 0.0);
    ctf.appendConductor("M2", 1.5, 0.0000004);  // below the 1e-6 grid: lo == hi, no boundary
    ctf.finishStack();
    ctf.mergePlate();
    // M1: the permittivity 1.0 at the key is overwritten by what stood above it (2.0).
    // M2: a new key whose tiny segment lies in er 2.0, then again the plate above (2.0).
    expectPlates(ctf, {{0.0, 4.0}, {1.0, 2.0}, {1.5, 2.0}, {2.0, 3.0}, {3.0, 1.0}});
}

TEST_F(MergePlate, HeightsAreComparedOnTheMicroGrid) {
    ctf.appendConductor("M1", 0.9999996, 1.0000008);  // keys 1e6 and 2e6 after rounding
    ctf.finishStack();
    ctf.mergePlate();
    expectPlates(ctf, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {3.0, 1.0}});
}

TEST(MergePlateFailures, ConductorBelowTheLowestPlateAndEmptyStack) {
    MCTF::MiniCTF ctf;
    ctf.appendDielectric("D0", 1.0, 1.0, 4.0);
    ctf.appendConductor("M1", 0.2, 0.3);
    ctf.finishStack();
    expectThrowText([&] { ctf.mergePlate(); }, "Can't merge layer");

    MCTF::MiniCTF empty;
    empty.finishStack();
    expectThrowText([&] { empty.mergePlate(); }, "Can't merge layer plate");
}
