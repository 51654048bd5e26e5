// The 24 generic families: each family's cross-section for one tuple, worked out by hand from
// the family table, and the grids they sweep.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "pattern_test_util.h"
#include "patterns/families.h"

namespace {

// Stack: substrate (-0.1..0), M1 1..2 (w 1, s 3), M2 3..4 (w 2, s 1), M3 5..6.
class FamilyStack : public testing::Test {
protected:
    void SetUp() override {
        ptest::fillStack(ctf, {{"M1", 1, 1, 1, 3}, {"M2", 3, 1, 2, 1}, {"M3", 5, 1, 0.5, 0.5}}, 7);
        const MCTF::ConductorLayer* P = ctf.substrate_ref;
        const auto& M = ctf.conductors;
        layersOf[KARVEN::GenericStructure::AnyPair] = {P, M[0]};
        layersOf[KARVEN::GenericStructure::AnyTriple] = {P, M[0], M[1]};
        layersOf[KARVEN::GenericStructure::PlatePair] = {P, M[0], M[1]};
        layersOf[KARVEN::GenericStructure::PlateTriple] = {P, M[0], M[1], M[2]};
    }
    MCTF::MiniCTF ctf;
    std::map<int, KARVEN::Layers> layersOf;
};

struct Wire {
    double x0, x1;
    const char* layer;
};

struct FamilyCase {
    const char* name;
    std::vector<Wire> wires;  // master first, far neighbour last
};

const char* S = "substrate";
// p = (1, 2, 4, 8); plates span the window of 100.
const std::vector<FamilyCase> kCases = {
    {"P1AAG", {{-2, 2, "M1"}, {-50, 50, S}, {17, 18, "M1"}}},
    {"P1ABG", {{-2, 2, "M1"}, {-50, 50, "M2"}, {-50, 50, S}, {17, 18, "M1"}}},
    {"AAG", {{-1, 1, "M1"}, {-13, -5, "M1"}, {-50, 50, S}, {16, 17, "M1"}}},
    {"ABG", {{-1, 1, "M1"}, {-50, 50, "M2"}, {-13, -5, "M1"}, {-50, 50, S}, {16, 17, "M1"}}},
    {"P3AAG",
     {{-0.5, 0.5, "M1"}, {-2.5, -1.5, "M1"}, {-4.5, -3.5, "M1"}, {-50, 50, S}, {15.5, 16.5, "M1"}}},
    {"P3ABG",
     {{-0.5, 0.5, "M1"},
      {-2.5, -1.5, "M1"},
      {-4.5, -3.5, "M1"},
      {-50, 50, "M2"},
      {-50, 50, S},
      {15.5, 16.5, "M1"}}},
    {"PAAG11B", {{-1.5, 1.5, "M1"}, {-9.5, 1.5, "M2"}, {-50, 50, S}, {16.5, 17.5, "M1"}}},
    {"PAAG11T", {{-3, 3, "M2"}, {-7, 3, "M1"}, {-50, 50, S}, {8, 10, "M2"}}},
    {"PABG11T", {{-3, 3, "M2"}, {-7, 3, "M1"}, {-50, 50, "M3"}, {-50, 50, S}, {8, 10, "M2"}}},
    {"PAAG12", {{-1, 1, "M2"}, {-13, -9, "M1"}, {-50, 50, S}, {6, 8, "M2"}}},
    {"PABG12", {{-1, 1, "M2"}, {-13, -9, "M1"}, {-50, 50, "M3"}, {-50, 50, S}, {6, 8, "M2"}}},
    {"PAAG13B",
     {{-1.5, 1.5, "M1"}, {-3.5, 1.5, "M2"}, {-50, 50, S}, {-13.5, -9.5, "M1"}, {16.5, 17.5, "M1"}}},
    {"PAAG13T", {{-3, 3, "M2"}, {-7, 3, "M1"}, {-16, -15, "M1"}, {-50, 50, S}, {8, 10, "M2"}}},
    {"PABG13T",
     {{-3, 3, "M2"},
      {-7, 3, "M1"},
      {-16, -15, "M1"},
      {-50, 50, "M3"},
      {-50, 50, S},
      {8, 10, "M2"}}},
    {"PAAG21", {{-1, 1, "M1"}, {-10, -9, "M2"}, {-50, 50, S}, {16, 17, "M1"}}},
    {"PAAG23",
     {{-1.5, 1.5, "M1"},
      {-10.5, -9.5, "M2"},
      {-50, 50, S},
      {-7.5, -5.5, "M1"},
      {16.5, 17.5, "M1"}}},
    {"PAAG31B",
     {{-1.5, 1.5, "M1"},
      {-2.5, 1.5, "M2"},
      {-12.5, -10.5, "M2"},
      {-50, 50, S},
      {16.5, 17.5, "M1"}}},
    {"PAAG31T", {{-3, 3, "M2"}, {-5, 3, "M1"}, {-12, -11, "M2"}, {-50, 50, S}, {8, 10, "M2"}}},
    {"PABG31T",
     {{-3, 3, "M2"},
      {-5, 3, "M1"},
      {-50, 50, "M3"},
      {-12, -11, "M2"},
      {-50, 50, S},
      {8, 10, "M2"}}},
    {"PAAG32", {{-3, 3, "M2"}, {-9, -7, "M1"}, {-12, -11, "M2"}, {-50, 50, S}, {8, 10, "M2"}}},
    {"PABG32",
     {{-3, 3, "M2"},
      {-9, -7, "M1"},
      {-50, 50, "M3"},
      {-12, -11, "M2"},
      {-50, 50, S},
      {8, 10, "M2"}}},
    {"PAAG33B",
     {{-1.5, 1.5, "M1"},
      {-2.5, 1.5, "M2"},
      {-12.5, -10.5, "M2"},
      {-50, 50, S},
      {-7.5, -5.5, "M1"},
      {16.5, 17.5, "M1"}}},
    {"PAAG33T",
     {{-3, 3, "M2"},
      {-5, 3, "M1"},
      {-10, -9, "M1"},
      {-12, -11, "M2"},
      {-50, 50, S},
      {8, 10, "M2"}}},
    {"PABG33T",
     {{-3, 3, "M2"},
      {-5, 3, "M1"},
      {-10, -9, "M1"},
      {-50, 50, "M3"},
      {-12, -11, "M2"},
      {-50, 50, S},
      {8, 10, "M2"}}},
};

void expectGrid(const std::vector<double>& got, const std::vector<double>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-12) << "entry " << i;
}

}  // namespace

TEST_F(FamilyStack, EachFamilyDrawsItsTemplateForOneTuple) {
    ASSERT_EQ(kCases.size(), 24u);
    for (const FamilyCase& c : kCases) {
        SCOPED_TRACE(c.name);
        auto family = KARVEN::PatternFactory::create(c.name);
        ASSERT_EQ(family->name, c.name);
        const KARVEN::Layers& layers = layersOf.at(family->combination);
        KARVEN::Pattern p = family->actualStructure(layers, {1, 2, 4, 8});
        ASSERT_EQ(p.conductors.size(), c.wires.size());
        for (size_t i = 0; i < c.wires.size(); ++i) {
            const Wire& w = c.wires[i];
            const MCTF::ConductorLayer* layer = nullptr;
            for (const auto* l : layers)
                if (l->name == w.layer) layer = l;
            ASSERT_NE(layer, nullptr);
            EXPECT_NEAR(p.conductors[i][0], w.x0, 1e-12) << "wire " << i;
            EXPECT_NEAR(p.conductors[i][2], w.x1, 1e-12) << "wire " << i;
            EXPECT_EQ(p.conductors[i][1], layer->z_bottom) << "wire " << i;
            EXPECT_EQ(p.conductors[i][3], layer->z_top) << "wire " << i;
        }
        // Between master and far neighbour the wires are the roles, one to one; the P3 kind
        // reports only its swept neighbour.
        if (family->name.rfind("P3", 0) != 0) {
            EXPECT_EQ(family->roles.size(), c.wires.size() - 2);
        }
        // Two-level families name all five plate slots once, in the writer's order, as roles
        // or skips (skips under "" come first, others follow their role).
        if (family->name.rfind("PA", 0) != 0) continue;
        std::vector<std::string> slots = family->skips[""];
        for (const std::string& role : family->roles) {
            slots.push_back(role);
            for (const auto& s : family->skips[role]) slots.push_back(s);
        }
        EXPECT_EQ(slots, (std::vector<std::string>{"overlap", "other_left", "closer_plane", "left",
                                                   "further_plane"}));
    }
}

TEST_F(FamilyStack, OverlapEdgeCases) {
    const auto& L = layersOf.at(KARVEN::GenericStructure::AnyTriple);
    // PAAG13B: an overlap of -1.5 w1 starts the other wire at x = 0, under the master's right half.
    auto p13 = KARVEN::PatternFactory::create("PAAG13B")->actualStructure(L, {1, -1.5, 4, 8});
    EXPECT_DOUBLE_EQ(p13.conductors[1][0], 0.0);
    EXPECT_DOUBLE_EQ(p13.conductors[1][2], 1.5);

    // PAAG31B reads its overlap from slot 0, which its order feeds from the single-valued wt
    // {w1}: every point of its sweep has the same overlap wire.
    auto f = KARVEN::PatternFactory::create("PAAG31B");
    KARVEN::ParameterSet set = f->getParameterSet(L);
    ASSERT_EQ(set[1].size(), 1u);
    ASSERT_EQ(set[3], (std::vector<double>{1.0}));
    EXPECT_EQ(set[2].size(), 8u);
    for (size_t j = 0; j < KARVEN::sweepSize(set); ++j) {
        auto p = f->actualStructure(L, KARVEN::sweepPoint(set, f->param_order, j));
        EXPECT_DOUBLE_EQ(p.conductors[1][0], -1.5 - 1.0);
    }
}

TEST_F(FamilyStack, P1WidthGridEnds) {
    MCTF::MiniCTF s;
    ptest::fillStack(s, {{"A", 1, 1, 1.0, 1}, {"B", 3, 1, 1.2, 1}, {"C", 5, 1, 0.1, 1}}, 7);
    auto f = KARVEN::PatternFactory::create("P1AAG");
    auto tail = [&](const MCTF::ConductorLayer* l) {
        auto g = f->getParameterSet({s.substrate_ref, l})[2];
        EXPECT_EQ(g.size(), 10u);
        return std::vector<double>(g.end() - 3, g.end());
    };
    expectGrid(tail(s.conductors[0]), {8, 9, 39});
    expectGrid(tail(s.conductors[1]), {9.6, 10.8, 40.8});
    expectGrid(tail(s.conductors[2]), {0.8, 10, 40});
}

TEST_F(FamilyStack, GridsFollowTheirLayers) {
    // PAAG33T on P, M1 (w 1, s 3), M2 (w 2, s 1).
    auto set = KARVEN::PatternFactory::create("PAAG33T")->getParameterSet(
        layersOf.at(KARVEN::GenericStructure::PlatePair));
    expectGrid(set[0], {1, 2, 13.0 / 3, 8, 8.43, 13});     // T6 of M2
    expectGrid(set[1], {3, 6, 10.35, 13, 24, 39});         // S6 of M1
    expectGrid(set[2], {-3.754, -3, -2, -1, 0, 1, 4, 9});  // O8(w2, w1)
    expectGrid(set[3], {2, 2.86, 4, 10});                  // Q4 of M2

    auto k = KARVEN::PatternFactory::create("PAAG11B")->getParameterSet(
        layersOf.at(KARVEN::GenericStructure::AnyTriple))[3];  // K(w1, w2)
    expectGrid(k, {-1.5, 0, 2 / 8.1, 8 / 8.1, 18 / 8.1, 32 / 8.1, 50 / 8.1, 72 / 8.1, 98 / 8.1,
                   128 / 8.1, 20});

    auto aag = KARVEN::PatternFactory::create("AAG")->getParameterSet(
        layersOf.at(KARVEN::GenericStructure::AnyPair));
    expectGrid(aag[0], {10});
    expectGrid(aag[1], {1, 1.5, 3, 5.5, 9, 13.5});
    expectGrid(aag[2], {3, 4.2, 6, 9, 12, 18, 39, 66, 99});
    expectGrid(aag[3], {1, 2, 5});

    auto p3 = KARVEN::PatternFactory::create("P3AAG")->getParameterSet(
        layersOf.at(KARVEN::GenericStructure::AnyPair))[0];
    expectGrid(p3, {7, 10, 13, 16, 19, 22, 25, 64});

    auto n6 = KARVEN::PatternFactory::create("PAAG12")->getParameterSet(
        layersOf.at(KARVEN::GenericStructure::PlatePair));
    expectGrid(n6[1], {-1.5, 0, 3, 10, 21, 36});  // N6 of M1
    expectGrid(n6[2], {1, 2, 5, 10, 17, 26});     // W6 of M1
    expectGrid(n6[3], {2, 4, 10, 20, 34});        // W5 of M2
}
