// The dielectric, via and tsv statements: full statements read into their records, every value
// and end-of-statement rule with the word it reports, and record ownership of the models.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tech_test_util.h"
#include "technology/ctf_dielectric.h"
#include "technology/ctf_tsv.h"
#include "technology/ctf_via.h"

namespace {

using namespace tech_test;

const std::string kSpacer =
    " spacer_er_from_gate_ws { widths { 0.1 0.2 } spacings { 1 } values { 5 6 } }\n";

TEST(CtfDielectric, PlanarAndConformalLayers) {
    Reader planar(
        "dielectric D1 { thickness 0.3 er 4.2 damage_size 0.01 damage_er 5\n"
        " bw_t 0 is_conformal }");
    const ConformalLayer& d = planar.read<CtfDielectric>()->layer;
    EXPECT_EQ(d.name, "D1");
    // A zero bw_t counts as absent; the side thickness stays unset.
    EXPECT_TRUE(near({d.thickness, d.er, d.damage_size, d.damage_er, d.bw_t, d.side_thickness},
                     {0.3, 4.2, 0.01, 5, -1, -1}));
    EXPECT_TRUE(d.bottoms.empty());

    // A conformal coat with a side thickness only: top becomes 0, thickness stays 0.
    Reader coat("dielectric C1 { er 3 bottom M1 bottom M2 side_thickness 0.01 }");
    const ConformalLayer& c = coat.read<CtfDielectric>()->layer;
    EXPECT_EQ(c.bottoms, (std::vector<std::string>{"M1", "M2"}));
    EXPECT_TRUE(near({c.side_thickness, c.top_thickness, c.thickness}, {0.01, 0, 0}));

    Reader thick("dielectric C2 { er 3 bottom M1 thickness 0.2 top_thickness 0.03 }");
    const ConformalLayer& t = thick.read<CtfDielectric>()->layer;
    EXPECT_TRUE(near({t.side_thickness, t.top_thickness, t.thickness}, {0, 0.03, 0.2}));

    // A bottom wall keeps the side and top thicknesses unset.
    Reader wall("dielectric BW { er 3 bottom M1 bw_t 0.005 }");
    const ConformalLayer& w = wall.read<CtfDielectric>()->layer;
    EXPECT_TRUE(near({w.bw_t, w.side_thickness, w.top_thickness}, {0.005, -1, -1}));

    Reader spacer("dielectric SP { er 7 bottom PO side_thickness 0.01\n" + kSpacer + "}");
    const ConformalLayer& s = spacer.read<CtfDielectric>()->layer;
    ASSERT_NE(s.spacer_model, nullptr);
    double out = 0;
    ASSERT_EQ(s.spacer_model->evalEtch(0.2, 1, out), 1);
    EXPECT_DOUBLE_EQ(out, 6.0);

    // The record owns its model: copies and assignments own theirs (each freed once at the end).
    std::vector<ConformalLayer> layers(3, s);
    layers[0] = layers[1];
    layers[0].spacer_model->values[0] = 99;
    EXPECT_DOUBLE_EQ(layers[1].spacer_model->values[0] + s.spacer_model->values[0], 10.0);
}

TEST(CtfDielectric, ErrorTexts) {
    const char* cases[][3] = {
        {"thickness", "-0.1", "invalid value"},
        {"damage_size", "0.001", "invalid damage_size value"},
        {"damage_er", "0", "invalid value"},
    };
    std::vector<ErrorCase> errors;
    for (const auto& c : cases)
        errors.push_back(
            {"dielectric D {\n er 3\n  " + std::string(c[0]) + " " + c[1] + " }", c[0], 1, c[2]});
    const std::vector<std::pair<std::string, std::string>> at_keyword = {
        {" thickness 1 ", "no permittivity is specified"},
        {" er 3 thickness 1 damage_er 4 ", "must specify both damage_size and damage_er"},
        {" er 3 thickness 1 bw_t 0.01 ", "only conformal dielectric layer can have bw_t"},
        {" er 3 thickness 1 " + kSpacer, "only conformal dielectric layer can have spacer_er"},
        {" er 3 bottom M1 bw_t 0.01 side_thickness 0.01 ",
         "the conformal layers which have bw_t attribte must not"},
        {" er 3 bottom M1 side_thickness 0.01 damage_er 3 ", "damage modeling cannot be applied"},
        {" er 3 bottom M1 bottom M2 side_thickness 0.01 " + kSpacer,
         "conformal layers with spacer_er_from_gate_ws model can not"},
    };
    for (const auto& [body, message] : at_keyword)
        errors.push_back({"\n dielectric D {" + body + "}", "dielectric", 1, message});
    errors.insert(errors.end(),
                  {{"dielectric D { er 0 }", "er", 1, "invalid permittivity value"},
                   {"dielectric { er 3 }", "dielectric", 1, "expecting dielectric name"},
                   {"dielectric D { er 3 widths { 1 } }", "widths", 1, kUnknowClass}});
    expectErrors(errors);
}

const std::string kViaEtch =
    " width_var_from_wl { widths { 0.1 0.2 } lengths { 0.1 0.3 }\n"
    "   values { (0.01 0.02) (0.03 0.04) (0.05 0.06) (0.07 0.08) } }\n";
const std::string kGateEtch =
    " width_var_from_contact_gate_s { num_tables 2\n"
    "   G1 { values { 0.1 } gate2contact_spacings { 1 } contact2contact_spacings { 1 } }\n"
    "   G2 { values { 0.2 } gate2contact_spacings { 1 } contact2contact_spacings { 1 } } }\n";

TEST(CtfVia, FullStatementsAndOwnership) {
    Reader r("via V1 {\n bottom M1 top M2 via_size 0.05 rpv 5 crt1 1 crt2 2 t_zero 3\n" + kViaEtch +
             " rpv_vs_area { (0.02 4) (0.01 6) }\n"
             " rpv_vs_width_and_length { widths { 0.1 } lengths { 0.1 0.2 } values { 3 2 } }\n"
             "}");
    const Via& v = r.read<CtfVia>()->via;
    EXPECT_EQ(v.name + " " + v.bottom + " " + v.top, "V1 M1 M2");
    EXPECT_TRUE(near({v.via_size, v.rpv, v.rho}, {0.05, 5, -1}));
    // Length model first, then width model; at width 0.2, length 0.1 (third value) the tuple
    // (0.05 0.06) stands unchanged.
    ASSERT_TRUE(v.etch.size() == 2 && v.rpv_area && v.rpv_wl && v.gate_etch.empty());
    EXPECT_TRUE(near({v.etch[0]->values[2], v.etch[1]->values[2], v.rpv_area->getResist(0.01),
                      v.rpv_wl->getRPV(0.1, 0.2)},
                     {0.05, 0.06, 6, 2}));

    Reader g("via CO { bottom OD top M1 rho 0.1\n" + kGateEtch + " rpv_vs_area { (1 1) } }");
    const Via& via = g.read<CtfVia>()->via;
    ASSERT_EQ(via.gate_etch.size(), 2u);
    EXPECT_EQ(via.gate_etch_names, (std::vector<std::string>{"G1", "G2"}));
    EXPECT_DOUBLE_EQ(via.gate_etch[1]->values[0], 0.2);
    EXPECT_TRUE(via.etch.empty());

    // The record owns its models: a copy has its own.
    const Via copy = via;
    EXPECT_NE(copy.gate_etch[0], via.gate_etch[0]);

    EXPECT_EQ(logOf("via V { bottom M1 top M2 rho 1\n er 3\n device_type { a }\n"
                    " tall_via_config { }\n csub_vs_spacing { (1 1) } }"),
              unsupported("er", 2, 1) + unsupported("device_type", 3, 1) +
                  unsupported("tall_via_config", 4, 1) + unsupported("csub_vs_spacing", 5, 1));
}

TEST(CtfVia, ErrorTexts) {
    const char* one_etch = "only one etch modeling is allowed";
    const char* names = "must specify both the via top and via bottom";
    const char* none = "must specfiy via resistance by using rho, rpv";
    std::vector<ErrorCase> errors;
    for (const char* word : {"via_size", "rpv", "rho"})
        errors.push_back({"via V {\n bottom M1 top M2\n " + std::string(word) + " 0 }", word, 1,
                          "invalid value"});
    const std::vector<std::pair<std::string, std::string>> at_keyword = {
        {" bottom M1 rho 1 ", names},
        {" bottom Substrate top M1 ", none},
        {" bottom M1 top M2 rpv 3 ", "must specify the via_size value"},
    };
    for (const auto& [body, message] : at_keyword)
        errors.push_back({"\n\n via V {" + body + "}", "via", 1, message});
    errors.insert(
        errors.end(),
        {{"via { }", "via", 1, "expecting via name"},
         {"via V {" + kViaEtch + kViaEtch + "}", "width_var_from_wl", 2, one_etch},
         {"via V {" + kViaEtch + kGateEtch + "}", "width_var_from_contact_gate_s", 1, one_etch},
         {"via V {" + kGateEtch + kViaEtch + "}", "width_var_from_wl", 1, one_etch}});
    expectErrors(errors);

    for (const char* body :
         {" bottom substrate top M1 ", " bottom SUBSTRATE top M1 rpv 3 ",
          " bottom M1 top M2 rpv 3 via_size 0.1 ", " bottom M1 top M2 rho 3 ",
          " bottom M1 top M2 rpv_vs_area { (1 1) } ",
          " bottom M1 top M2 rpv_vs_width_and_length { widths { 1 } lengths { 1 } values { 1 } } "})
        EXPECT_EQ(errorOf("via V {" + std::string(body) + "}"), "no error") << body;
}

TEST(CtfTSV, FullStatementAndErrorTexts) {
    Reader r(
        "tsv T1 {\n bottom M1 top BM1 via_size 5 rho 0.02 thickness 50\n"
        " insulation_thickness 0.2 insulation_er 3.9 crt1 1 crt2 1 t_zero 25\n"
        " csub_vs_spacing { (1 2) } rsub_vs_spacing { (1 2) }\n"
        " ceff_vs_frq_and_spacing { frq { 1 2 } spacings { 1 } values { 1 2 } }\n}");
    const TSV& t = r.read<CtfTSV>()->tsv;
    EXPECT_EQ(t.name + " " + t.bottom + " " + t.top, "T1 M1 BM1");
    EXPECT_TRUE(near({t.via_size, t.rho, t.thickness, t.insulation_thickness, t.insulation_er},
                     {5, 0.02, 50, 0.2, 3.9}));

    const char* names = "must specify both the tsv top and tsv bottom";
    const char* insulation = "must specify both the insulation_thickness and insulation_er";
    std::vector<ErrorCase> errors;
    for (const char* word : {"via_size", "insulation_er"})
        errors.push_back({"tsv T {\n  " + std::string(word) + " 0 }", word, 1, "invalid value"});
    for (const auto& [body, message] : std::vector<std::pair<std::string, std::string>>{
             {" top A thickness 1 ", names},
             {" bottom A top B ", "must specify thickness value"},
             {" bottom A top B thickness 1 insulation_er 3 ", insulation}})
        errors.push_back({" tsv T {" + body + "}", "tsv", 1, message});
    errors.insert(errors.end(), {{"tsv { }", "tsv", 1, "expecting TSV name"},
                                 {"tsv T { er 1 }", "er", 1, kUnknowField},
                                 {"tsv T { widths { 1 } }", "widths", 1, kUnknowClass}});
    expectErrors(errors);
}

}  // namespace
