// Usable layers, layer combinations, the sweep of a combination and the order of its points.
#include <gtest/gtest.h>

#include <string>

#include "patterns/generic.h"

namespace {

// A family whose own sweep is easy to recognise.
struct SweepFamily : KARVEN::GenericStructure {
    explicit SweepFamily(CombinationType c) : GenericStructure("SWEEP", c) {}
    KARVEN::ParameterSet getParameterSet(const KARVEN::Layers&) override {
        return {{{1.0}, {2.0}, {3.0}, {4.0}}};
    }
    KARVEN::Pattern actualStructure(const KARVEN::Layers&, const std::array<double, 4>&) override {
        return {};
    }
};

std::string names(const KARVEN::Layers& layers) {
    std::string s;
    for (const auto* l : layers) s += (s.empty() ? "" : " ") + l->name;
    return s;
}

std::vector<std::string> combos(const MCTF::MiniCTF& ctf,
                                KARVEN::GenericStructure::CombinationType type) {
    std::vector<std::string> out;
    for (const auto& c : SweepFamily(type).prepareLayerCombinations(ctf)) out.push_back(names(c));
    return out;
}

class ThreeMetals : public testing::Test {
protected:
    void SetUp() override {
        ctf.appendConductor("M1", 0.2, 0.1);
        ctf.appendConductor("M2", 0.5, 0.1);
        ctf.appendConductor("M3", 0.8, 0.1);
        ctf.appendDielectric("D", 0.0, 1.0, 4.0);
        ctf.finishStack();
    }
    MCTF::MiniCTF ctf;
};

}  // namespace

TEST(NonOverlapLayers, EarlierLayerWinsOverlapsAndSharedBoundaries) {
    MCTF::MiniCTF ctf;
    ctf.appendConductor("M1", 0.2, 0.1);
    ctf.appendConductor("M1b", 0.25, 0.1);  // overlaps M1
    ctf.appendConductor("M2", 0.3, 0.1);    // only touches M1's top: still dropped
    ctf.appendConductor("M3", 0.5, 0.1, 0.05, 0.07);
    ctf.appendDielectric("D", 0.0, 1.0, 4.0);
    ctf.finishStack();
    testing::internal::CaptureStdout();
    KARVEN::Layers kept = KARVEN::get_nonoverlap_metal_layers(ctf);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[INFO]: 4 metal layers found.\n"
              "[INFO]: 2 non-overlapping metal layers selected.\n"
              "  Layer 0: M1 (0.2 - 0.3), wmin = 0.1, smin = 0.1\n"
              "  Layer 1: M3 (0.5 - 0.6), wmin = 0.05, smin = 0.07\n");
    EXPECT_EQ(names(kept), "M1 M3");
}

TEST_F(ThreeMetals, CombinationsOfEachTypeInLoopOrder) {
    using G = KARVEN::GenericStructure;
    EXPECT_EQ(combos(ctf, G::AnyPair),
              (std::vector<std::string>{"substrate M1", "substrate M2", "M1 M2", "substrate M3",
                                        "M1 M3", "M2 M3"}));
    EXPECT_EQ(combos(ctf, G::AnyTriple),
              (std::vector<std::string>{"substrate M1 M2", "substrate M1 M3", "substrate M2 M3",
                                        "M1 M2 M3"}));
    EXPECT_EQ(combos(ctf, G::PlatePair),
              (std::vector<std::string>{"substrate M1 M2", "substrate M1 M3",
                                        "substrate M2 M3"}));
    EXPECT_EQ(combos(ctf, G::PlateTriple), (std::vector<std::string>{"substrate M1 M2 M3"}));
}

TEST(Combinations, PlatePairOnOneMetalHasNone) {
    MCTF::MiniCTF ctf;
    ctf.appendConductor("M1", 0.2, 0.1);
    ctf.appendDielectric("D", 0.0, 1.0, 4.0);
    ctf.finishStack();
    EXPECT_TRUE(combos(ctf, KARVEN::GenericStructure::PlatePair).empty());
    EXPECT_EQ(combos(ctf, KARVEN::GenericStructure::AnyPair).size(), 1u);
}

TEST(LayerOverlap, StrictlyAboveTheNextBottomOnly) {
    MCTF::MiniCTF ctf;
    // Heights exact in binary, so touching is exact.
    ctf.appendConductor("A", 0.25, 0.25);
    ctf.appendConductor("B", 0.5, 0.25);    // touches A
    ctf.appendConductor("C", 0.625, 0.25);  // overlaps B
    ctf.appendConductor("A2", 0.25, 0.25);  // same heights as A
    ctf.appendDielectric("D", 0.0, 1.0, 4.0);
    ctf.finishStack();
    SweepFamily f(KARVEN::GenericStructure::AnyPair);
    const auto& c = ctf.conductors;
    EXPECT_FALSE(f.layerOverlap({}));
    EXPECT_FALSE(f.layerOverlap({c[0]}));
    EXPECT_FALSE(f.layerOverlap({c[0], c[1]}));
    EXPECT_TRUE(f.layerOverlap({c[1], c[2]}));
    EXPECT_TRUE(f.layerOverlap({c[0], c[3]}));
    EXPECT_TRUE(f.layerOverlap({ctf.substrate_ref, c[0], c[2], c[1]}));
}

TEST_F(ThreeMetals, CapLibTakesFourArraysFromTheLayerKeyOrFallsBack) {
    SweepFamily f(KARVEN::GenericStructure::PlatePair);
    KARVEN::Layers layers{ctf.substrate_ref, ctf.conductors[0], ctf.conductors[2]};
    auto own = f.getParameterSet(layers);

    auto lib = f.prepareCapLib(layers, KARVEN::json::parse(
                                           R"({"0 1 3": [[0.1, 0.2], [1], [2, 3], [4]]})"));
    EXPECT_EQ(lib.params[0], (std::vector<double>{0.1, 0.2}));
    EXPECT_EQ(lib.params[2], (std::vector<double>{2, 3}));
    EXPECT_TRUE(lib.values.empty());

    for (const char* ignored : {R"({"0 1 3": [[1], [2], [3]]})", R"({"0 1 3": [1, 2, 3, 4]})",
                                R"({"1 3": [[9], [9], [9], [9]]})", R"([[9], [9], [9], [9]])",
                                "null"}) {
        EXPECT_EQ(f.prepareCapLib(layers, KARVEN::json::parse(ignored)).params, own) << ignored;
    }
}

TEST_F(ThreeMetals, CapLibRaisesTheLibraryTypeErrors) {
    SweepFamily f(KARVEN::GenericStructure::AnyPair);
    KARVEN::Layers layers{ctf.conductors[0], ctf.conductors[1]};
    try {
        f.prepareCapLib(layers, KARVEN::json::parse(R"({"1 2": {"a":1,"b":2,"c":3,"d":4}})"));
        FAIL();
    } catch (const KARVEN::json::type_error& e) {
        EXPECT_EQ(e.id, 305);
        EXPECT_NE(std::string(e.what()).find(
                      "cannot use operator[] with a numeric argument with object"),
                  std::string::npos);
    }
    try {
        f.prepareCapLib(layers, KARVEN::json::parse(R"({"1 2": [[1], 2, [3], [4]]})"));
        FAIL();
    } catch (const KARVEN::json::type_error& e) {
        EXPECT_NE(std::string(e.what()).find("type must be array, but is number"),
                  std::string::npos);
    }
}

TEST(SweepPoints, LastOrderedVectorVariesFastest) {
    KARVEN::ParameterSet p{{{1, 2}, {10, 20, 30}, {100}, {1000, 2000}}};
    EXPECT_EQ(KARVEN::sweepSize(p), 12u);
    std::array<int, 4> natural{0, 1, 2, 3};
    using P = std::array<double, 4>;
    EXPECT_EQ(KARVEN::sweepPoint(p, natural, 0), (P{1, 10, 100, 1000}));
    EXPECT_EQ(KARVEN::sweepPoint(p, natural, 1), (P{1, 10, 100, 2000}));
    EXPECT_EQ(KARVEN::sweepPoint(p, natural, 2), (P{1, 20, 100, 1000}));
    EXPECT_EQ(KARVEN::sweepPoint(p, natural, 11), (P{2, 30, 100, 2000}));
    // Slot k reads vector order[k]: here slot 3 reads vector 0, which now varies fastest.
    std::array<int, 4> reversed{3, 2, 1, 0};
    EXPECT_EQ(KARVEN::sweepPoint(p, reversed, 1), (P{1000, 100, 10, 2}));
    EXPECT_EQ(KARVEN::sweepPoint(p, reversed, 2), (P{1000, 100, 20, 1}));
    EXPECT_EQ(KARVEN::sweepPoint(p, reversed, 6), (P{2000, 100, 10, 1}));
}
