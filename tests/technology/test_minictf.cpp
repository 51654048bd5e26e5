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
    EXPECT_EQ(ctf.substrate.name + std::to_string(ctf.substrate.id), "substrate-1");
    EXPECT_DOUBLE_EQ(ctf.substrate.z_bottom, -0.1);
    EXPECT_EQ(ctf.conductors.at(1)->id, 1);
    EXPECT_DOUBLE_EQ(ctf.conductors[0]->z_top, 0.4);
    // The zero-thickness coat stands in the lists of both its conductors but gives no plate.
    ASSERT_EQ(ctf.dielectrics.size(), 3u);
    ASSERT_EQ(ctf.conductors[1]->conformals.size(), 1u);
    EXPECT_EQ(ctf.conductors[1]->conformals[0]->name, "CONF");
    expectPlates(ctf, {{0.0, 4.0}, {0.5, 2.5}, {1.0, 1.0}});
}

TEST(MiniCtfStack, MergePlateGivesConductorsTheThicknessWeightedMean) {
    // Three plates 0-1 (er 4), 1-2 (er 2), 2-3 (er 3) under air; conductors as (base, thickness).
    struct Case {
        std::vector<std::pair<double, double>> conductors;
        Plates want;
    };
    const double m2 = (0.5 * 3.0 + 0.5 * 2.0 + 0.5 * 3.0) / 1.5;
    const Case cases[] = {
        // 0.5-2.5: 0.5 of er 4, 1.0 of er 2, 0.5 of er 3.
        {{{0.5, 2.0}},
         {{0.0, 4.0}, {0.5, (0.5 * 4 + 1.0 * 2 + 0.5 * 3) / 2.0}, {2.5, 3.0}, {3.0, 1.0}}},
        // Later conductors see the earlier merges: 0.5-1.5 gives 3.0, then 1.0-2.5 lies over
        // 0.5 of that 3.0, 0.5 of er 2 and 0.5 of er 3.
        {{{0.5, 1.0}, {1.0, 1.5}}, {{0.0, 4.0}, {0.5, 3.0}, {1.0, m2}, {2.5, 3.0}, {3.0, 1.0}}},
        // Reaching through the top moves the marker; ending at the top keeps it there.
        {{{2.5, 1.0}}, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {2.5, 3.0}, {3.5, 1.0}}},
        {{{2.5, 0.5}}, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {2.5, 3.0}, {3.0, 1.0}}},
        // On a boundary the permittivity at the key is overwritten by what stood above it (2.0);
        // 4e-7 thick lies below the 1e-6 grid: a new key whose tiny segment lies in er 2.0.
        {{{1.0, 0.0}, {1.5, 0.0000004}},
         {{0.0, 4.0}, {1.0, 2.0}, {1.5, 2.0}, {2.0, 3.0}, {3.0, 1.0}}},
        // Heights are compared on the micro grid: keys 1e6 and 2e6 after rounding.
        {{{0.9999996, 1.0000008}}, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {3.0, 1.0}}},
    };
    for (const Case& c : cases) {
        MCTF::MiniCTF ctf;
        ctf.appendDielectric("D0", 0.0, 1.0, 4.0);
        ctf.appendDielectric("D1", 1.0, 1.0, 2.0);
        ctf.appendDielectric("D2", 2.0, 1.0, 3.0);
        for (std::size_t i = 0; i < c.conductors.size(); ++i)
            ctf.appendConductor("M" + std::to_string(i + 1), c.conductors[i].first,
                                c.conductors[i].second);
        ctf.finishStack();
        ctf.mergePlate();
        SCOPED_TRACE("case with first conductor at " + std::to_string(c.conductors[0].first));
        expectPlates(ctf, c.want);
    }
}
