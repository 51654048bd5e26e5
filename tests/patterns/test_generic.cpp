// The pattern model (coats, flattening, factory), usable layers, layer combinations, the
// parameter file's sweeps and the order of the points of a sweep.
#include "pattern_test_util.h"

using ptest::StubFamily;
using G = KARVEN::GenericStructure;

namespace {

std::string names(const KARVEN::Layers& layers) {
    std::string s;
    for (const auto* l : layers) s += (s.empty() ? "" : " ") + l->name;
    return s;
}

std::vector<std::string> combos(const MCTF::MiniCTF& ctf, G::CombinationType type) {
    std::vector<std::string> out;
    for (const auto& c : StubFamily("S", type).prepareLayerCombinations(ctf))
        out.push_back(names(c));
    return out;
}

void expectRect(const KARVEN::Rect& r, const KARVEN::Rect& want) {
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(r[k], want[k], 1e-12) << k;
}

}  // namespace

TEST(PatternModel, CoatsGrowOutwardLayerByLayerAndFlattenInKeyOrder) {
    // M1 (0.2-0.3) with coats CA (side 0.01, top 0.02), NONE (no thickness: skipped) and CB
    // (top only, 0.05); M2 bare.
    MCTF::MiniCTF ctf;
    ctf.appendConductor("M1", 0.2, 0.1);
    ctf.appendConductor("M2", 0.5, 0.1);
    ctf.appendDielectric("IMD", 0.0, 1.0, 4.0);
    ctf.appendDielectric("CA", 0.2, 0.0, 7.0, 0.01, 0.02, -1.0, {"M1"});
    ctf.appendDielectric("NONE", 0.2, 0.0, 5.0, 0.0, 0.0, -1.0, {"M1"});
    ctf.appendDielectric("CB", 0.2, 0.0, 3.0, 0.0, 0.05, -1.0, {"M1"});
    ctf.finishStack();
    KARVEN::Pattern p;
    p.addConductor(1.0, 1.5, ctf.conductors[0]);
    p.addConductor(-0.5, 0.0, ctf.conductors[1]);
    p.addConductor(3.0, 3.2, ctf.conductors[0]);
    ASSERT_EQ(p.conductors.size(), 3u);
    expectRect(p.conductors[0], {1.0, 0.2, 1.5, 0.3});
    // Keys are the coat ids: CA 1, CB 3; one entry per M1 wire, none for M2.
    ASSERT_EQ(p.conformal_rects.size(), 2u);
    ASSERT_EQ(p.conformal_rects.at(1).size(), 2u);
    EXPECT_EQ(p.conformal_rects.at(1)[0].first, 7.0);
    expectRect(p.conformal_rects.at(1)[0].second, {0.99, 0.2, 1.51, 0.32});
    expectRect(p.conformal_rects.at(3)[0].second, {0.99, 0.2, 1.51, 0.37});  // sides from CA

    auto flat = p.flattenConformals();
    ASSERT_EQ(flat.size(), 4u);  // both CA coats, then both CB coats
    EXPECT_EQ(flat[1].first, 7.0);
    EXPECT_EQ(flat[2].first, 3.0);
    expectRect(flat[3].second, {2.99, 0.2, 3.21, 0.37});
}

TEST(NonOverlapLayers, EarlierLayerWinsOverlapsAndSharedBoundaries) {
    MCTF::MiniCTF ctf;
    ptest::fillStack(ctf, {{"M1", 0.2, 0.1},
                           {"M1b", 0.25, 0.1},  // overlaps M1
                           {"M2", 0.3, 0.1},    // only touches M1's top: still dropped
                           {"M3", 0.5, 0.1, 0.05, 0.07}});
    KARVEN::Layers kept;
    EXPECT_EQ(ptest::quiet([&] { kept = KARVEN::get_nonoverlap_metal_layers(ctf); }),
              "[INFO]: 4 metal layers found.\n"
              "[INFO]: 2 non-overlapping metal layers selected.\n"
              "  Layer 0: M1 (0.2 - 0.3), wmin = 0.1, smin = 0.1\n"
              "  Layer 1: M3 (0.5 - 0.6), wmin = 0.05, smin = 0.07\n");
    EXPECT_EQ(names(kept), "M1 M3");
}

TEST(Combinations, EachTypeInLoopOrder) {
    MCTF::MiniCTF ctf;
    ptest::fillStack(ctf, {{"M1", 0.2, 0.1}, {"M2", 0.5, 0.1}, {"M3", 0.8, 0.1}});
    using V = std::vector<std::string>;
    EXPECT_EQ(combos(ctf, G::AnyPair),
              (V{"substrate M1", "substrate M2", "M1 M2", "substrate M3", "M1 M3", "M2 M3"}));
    EXPECT_EQ(combos(ctf, G::AnyTriple),
              (V{"substrate M1 M2", "substrate M1 M3", "substrate M2 M3", "M1 M2 M3"}));
    EXPECT_EQ(combos(ctf, G::PlatePair),
              (V{"substrate M1 M2", "substrate M1 M3", "substrate M2 M3"}));
    EXPECT_EQ(combos(ctf, G::PlateTriple), (V{"substrate M1 M2 M3"}));

    MCTF::MiniCTF one;
    ptest::fillStack(one, {{"M1", 0.2, 0.1}});
    EXPECT_TRUE(combos(one, G::PlatePair).empty());
    EXPECT_EQ(combos(one, G::AnyPair), V{"substrate M1"});
}
