// The 24 generic families: each family's cross-section for one tuple, worked out by hand from
// the family table, and the grids they sweep.
#include <map>

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

// Each family's wires for p = (1, 2, 4, 8) as "x0 x1 layer" triples, master first and far neighbour
// last; plates (S: the substrate) span the window of 100.
const std::pair<const char*, const char*> kCases[] = {
    {"P1AAG", "-2 2 M1  -50 50 S  17 18 M1"},
    {"P1ABG", "-2 2 M1  -50 50 M2  -50 50 S  17 18 M1"},
    {"AAG", "-1 1 M1  -13 -5 M1  -50 50 S  16 17 M1"},
    {"ABG", "-1 1 M1  -50 50 M2  -13 -5 M1  -50 50 S  16 17 M1"},
    {"P3AAG", "-0.5 0.5 M1  -2.5 -1.5 M1  -4.5 -3.5 M1  -50 50 S  15.5 16.5 M1"},
    {"P3ABG", "-0.5 0.5 M1  -2.5 -1.5 M1  -4.5 -3.5 M1  -50 50 M2  -50 50 S  15.5 16.5 M1"},
    {"PAAG11B", "-1.5 1.5 M1  -9.5 1.5 M2  -50 50 S  16.5 17.5 M1"},
    {"PAAG11T", "-3 3 M2  -7 3 M1  -50 50 S  8 10 M2"},
    {"PABG11T", "-3 3 M2  -7 3 M1  -50 50 M3  -50 50 S  8 10 M2"},
    {"PAAG12", "-1 1 M2  -13 -9 M1  -50 50 S  6 8 M2"},
    {"PABG12", "-1 1 M2  -13 -9 M1  -50 50 M3  -50 50 S  6 8 M2"},
    {"PAAG13B", "-1.5 1.5 M1  -3.5 1.5 M2  -50 50 S  -13.5 -9.5 M1  16.5 17.5 M1"},
    {"PAAG13T", "-3 3 M2  -7 3 M1  -16 -15 M1  -50 50 S  8 10 M2"},
    {"PABG13T", "-3 3 M2  -7 3 M1  -16 -15 M1  -50 50 M3  -50 50 S  8 10 M2"},
    {"PAAG21", "-1 1 M1  -10 -9 M2  -50 50 S  16 17 M1"},
    {"PAAG23", "-1.5 1.5 M1  -10.5 -9.5 M2  -50 50 S  -7.5 -5.5 M1  16.5 17.5 M1"},
    {"PAAG31B", "-1.5 1.5 M1  -2.5 1.5 M2  -12.5 -10.5 M2  -50 50 S  16.5 17.5 M1"},
    {"PAAG31T", "-3 3 M2  -5 3 M1  -12 -11 M2  -50 50 S  8 10 M2"},
    {"PABG31T", "-3 3 M2  -5 3 M1  -50 50 M3  -12 -11 M2  -50 50 S  8 10 M2"},
    {"PAAG32", "-3 3 M2  -9 -7 M1  -12 -11 M2  -50 50 S  8 10 M2"},
    {"PABG32", "-3 3 M2  -9 -7 M1  -50 50 M3  -12 -11 M2  -50 50 S  8 10 M2"},
    {"PAAG33B", "-1.5 1.5 M1  -2.5 1.5 M2  -12.5 -10.5 M2  -50 50 S  -7.5 -5.5 M1  16.5 17.5 M1"},
    {"PAAG33T", "-3 3 M2  -5 3 M1  -10 -9 M1  -12 -11 M2  -50 50 S  8 10 M2"},
    {"PABG33T", "-3 3 M2  -5 3 M1  -10 -9 M1  -50 50 M3  -12 -11 M2  -50 50 S  8 10 M2"},
};

}  // namespace

TEST_F(FamilyStack, EachFamilyDrawsItsTemplateForOneTuple) {
    ASSERT_EQ(std::size(kCases), 24u);
    for (const auto& [name, text] : kCases) {
        SCOPED_TRACE(name);
        auto family = KARVEN::PatternFactory::create(name);
        ASSERT_EQ(family->name, name);
        const KARVEN::Layers& layers = layersOf.at(family->combination);
        KARVEN::Pattern p = family->actualStructure(layers, {1, 2, 4, 8});
        std::istringstream wires(text);
        size_t i = 0;
        double x0, x1;
        for (std::string layer; wires >> x0 >> x1 >> layer; ++i) {
            if (layer == "S") layer = "substrate";
            const auto at = std::find_if(layers.begin(), layers.end(),
                                         [&](const auto* l) { return l->name == layer; });
            ASSERT_NE(at, layers.end());
            ASSERT_LT(i, p.conductors.size());
            EXPECT_EQ(p.conductors[i], (KARVEN::Rect{x0, (*at)->z_bottom, x1, (*at)->z_top}))
                << "wire " << i;
        }
        EXPECT_EQ(p.conductors.size(), i);
        // Between master and far neighbour the wires are the roles, one to one; the P3 kind
        // reports only its swept neighbour.
        if (family->name.rfind("P3", 0) != 0) {
            EXPECT_EQ(family->roles.size(), i - 2);
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
