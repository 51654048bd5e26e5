// The dielectric, via and tsv statements: full statements read into their records, every value
// and end-of-statement rule with the word it reports, and record ownership of the models.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ctf_statement_test_util.h"
#include "technology/ctf_dielectric.h"
#include "technology/ctf_tsv.h"
#include "technology/ctf_via.h"

namespace {

using stmt_test::errorAt;
using stmt_test::errorOf;
using stmt_test::Statement;

// The log text that reading `text` writes; fails the test when the element does not read.
std::string logOf(const std::string& text) {
    Statement s(text);
    testing::internal::CaptureStdout();
    const std::string error = s.error();
    const std::string log = testing::internal::GetCapturedStdout();
    EXPECT_EQ(error, "no error");
    return log;
}

std::string unsupported(const char* word, int line, int pos) {
    return "[WARNING] CTF file: unsupported field \"" + std::string(word) +
           "\" in the table, line: " + std::to_string(line) + ", pos: " + std::to_string(pos) +
           ".\n";
}

void expectAtKeyword(const std::string& text, const char* keyword, const char* message) {
    EXPECT_EQ(errorOf(text), errorAt(text, keyword, 1, message)) << text;
}

const char* const kSpacer =
    " spacer_er_from_gate_ws { widths { 0.1 0.2 } spacings { 1 } values { 5 6 } }\n";

TEST(CtfDielectric, PlanarAndConformalLayers) {
    Statement planar(
        "dielectric D1 { thickness 0.3 er 4.2 damage_size 0.01 damage_er 5\n"
        " bw_t 0 is_conformal }");
    auto* p = planar.read<CtfDielectric>();
    ASSERT_NE(p, nullptr);
    const ConformalLayer& d = p->layer;
    EXPECT_EQ(d.name, "D1");
    EXPECT_DOUBLE_EQ(d.thickness, 0.3);
    EXPECT_DOUBLE_EQ(d.er, 4.2);
    EXPECT_DOUBLE_EQ(d.damage_size, 0.01);
    EXPECT_DOUBLE_EQ(d.damage_er, 5.0);
    EXPECT_DOUBLE_EQ(d.bw_t, -1.0);  // a zero bw_t counts as absent
    EXPECT_TRUE(d.bottoms.empty());
    EXPECT_DOUBLE_EQ(d.side_thickness, -1.0);
    EXPECT_DOUBLE_EQ(d.base, 0.0);

    // A conformal coat with a side thickness only: top becomes 0, thickness stays 0.
    Statement coat("dielectric C1 { er 3 bottom M1 bottom M2 side_thickness 0.01 }");
    const ConformalLayer& c = coat.read<CtfDielectric>()->layer;
    EXPECT_EQ(c.bottoms, (std::vector<std::string>{"M1", "M2"}));
    EXPECT_DOUBLE_EQ(c.side_thickness, 0.01);
    EXPECT_DOUBLE_EQ(c.top_thickness, 0.0);
    EXPECT_DOUBLE_EQ(c.thickness, 0.0);

    Statement thick("dielectric C2 { er 3 bottom M1 thickness 0.2 top_thickness 0.03 }");
    const ConformalLayer& t = thick.read<CtfDielectric>()->layer;
    EXPECT_DOUBLE_EQ(t.thickness, 0.2);
    EXPECT_DOUBLE_EQ(t.side_thickness, 0.0);
    EXPECT_DOUBLE_EQ(t.top_thickness, 0.03);

    Statement spacer("dielectric SP { er 7 bottom PO side_thickness 0.01\n" + std::string(kSpacer) +
                     "}");
    const ConformalLayer& s = spacer.read<CtfDielectric>()->layer;
    ASSERT_NE(s.spacer_model, nullptr);
    double out = 0;
    ASSERT_EQ(s.spacer_model->evalEtch(0.2, 1, out), 1);
    EXPECT_DOUBLE_EQ(out, 6.0);

    // A bottom wall keeps the side and top thicknesses unset.
    Statement wall("dielectric BW { er 3 bottom M1 bw_t 0.005 }");
    const ConformalLayer& w = wall.read<CtfDielectric>()->layer;
    EXPECT_DOUBLE_EQ(w.bw_t, 0.005);
    EXPECT_DOUBLE_EQ(w.side_thickness, -1.0);
    EXPECT_DOUBLE_EQ(w.top_thickness, -1.0);
}

TEST(CtfDielectric, ValueRulesAndFields) {
    const char* cases[][3] = {
        {"er", "0", "invalid permittivity value"},
        {"thickness", "-0.1", "invalid value"},
        {"side_thickness", "-1", "invalid value"},
        {"top_thickness", "-1", "invalid value"},
        {"damage_size", "0.001", "invalid damage_size value"},
        {"damage_er", "0", "invalid value"},
        {"bw_t", "-0.1", "invalid value"},
    };
    for (const auto& c : cases) {
        const std::string text =
            "dielectric D {\n er 3\n  " + std::string(c[0]) + " " + c[1] + " }";
        EXPECT_EQ(errorOf(text), errorAt(text, c[0], c[0] == std::string("er") ? 2 : 1, c[2]));
    }
    EXPECT_STATEMENT_ERROR("dielectric { er 3 }", "dielectric", 1, "expecting dielectric name");
    EXPECT_STATEMENT_ERROR("dielectric D { er 3 widths { 1 } }", "widths", 1,
                           "unknow field in the table");
    EXPECT_STATEMENT_ERROR("dielectric D { er 3 device_type { a } }", "device_type", 1,
                           "unknow field in the table");

    EXPECT_EQ(logOf("dielectric D {\n thickness 1 er 3\n rho 1\n top M1\n is_planar\n"
                    " er_table { (a 1) }\n csub_vs_spacing { (1 2) }\n tall_via_config { }\n}"),
              unsupported("rho", 3, 1) + unsupported("top", 4, 1) + unsupported("is_planar", 5, 1) +
                  unsupported("er_table", 6, 1) + unsupported("csub_vs_spacing", 7, 1) +
                  unsupported("tall_via_config", 8, 1));
}

TEST(CtfDielectric, EndRules) {
    auto atKeyword = [](const std::string& body, const char* message) {
        expectAtKeyword("\n dielectric D {" + body + "}", "dielectric", message);
    };
    atKeyword(" thickness 1 ", "no permittivity is specified for the layer");
    // Planar layers.
    atKeyword(" er 3 thickness 0 ", "no thickness is specified for the dielectric layer");
    atKeyword(" er 3 ", "no thickness is specified for the dielectric layer");
    atKeyword(" er 3 thickness 1 damage_er 4 ",
              "must specify both damage_size and damage_er to enable the damage modeling");
    atKeyword(" er 3 thickness 1 damage_size 0.01 ",
              "must specify both damage_size and damage_er to enable the damage modeling");
    atKeyword(" er 3 thickness 1 bw_t 0.01 ",
              "only conformal dielectric layer can have bw_t attribute");
    atKeyword(" er 3 thickness 1 " + std::string(kSpacer),
              "only conformal dielectric layer can have spacer_er_from_gate_ws model");
    // Bottom walls.
    const char* wall_thickness =
        "the conformal layers which have bw_t attribte must not have non-zero value of "
        "thickness, side_thickness, or top_thickness";
    atKeyword(" er 3 bottom M1 bw_t 0.01 side_thickness 0.01 ", wall_thickness);
    atKeyword(" er 3 bottom M1 bw_t 0.01 top_thickness 0.01 ", wall_thickness);
    atKeyword(" er 3 bottom M1 bw_t 0.01 thickness 0.01 ", wall_thickness);
    atKeyword(" er 3 bottom M1 bw_t 0.01 " + std::string(kSpacer),
              "spacer_er_from_gate_ws model can not be applied to the bottom wall conformal "
              "layers which have bw_t attribute");
    // Other conformal layers.
    atKeyword(" er 3 bottom M1 side_thickness 0 top_thickness 0 ",
              "no valid thickness is specified for the conformal layer");
    atKeyword(" er 3 bottom M1 side_thickness 0.01 damage_er 3 ",
              "damage modeling cannot be applied to the conformal layer");
    atKeyword(" er 3 bottom M1 side_thickness 0.01 damage_size 0.01 ",
              "damage modeling cannot be applied to the conformal layer");
    atKeyword(" er 3 bottom M1 bottom M2 side_thickness 0.01 " + std::string(kSpacer),
              "conformal layers with spacer_er_from_gate_ws model can not be specified to more "
              "than 1 bottom conductor");
    atKeyword(" er 3 bottom M1 thickness 0.1 " + std::string(kSpacer),
              "conformal layers with spacer_er_from_gate_ws model must not have non-zero value "
              "of thickness");
}

const char* const kViaEtch =
    " width_var_from_wl { widths { 0.1 0.2 } lengths { 0.1 0.3 }\n"
    "   values { (0.01 0.02) (0.03 0.04) (0.05 0.06) (0.07 0.08) } }\n";
const char* const kGateEtch =
    " width_var_from_contact_gate_s { num_tables 2\n"
    "   G1 { values { 0.1 } gate2contact_spacings { 1 } contact2contact_spacings { 1 } }\n"
    "   G2 { values { 0.2 } gate2contact_spacings { 1 } contact2contact_spacings { 1 } } }\n";

TEST(CtfVia, FullStatement) {
    Statement s("via V1 {\n bottom M1 top M2 via_size 0.05 rpv 5 crt1 1 crt2 2 t_zero 3\n" +
                std::string(kViaEtch) +
                " rpv_vs_area { (0.02 4) (0.01 6) }\n"
                " rpv_vs_width_and_length { widths { 0.1 } lengths { 0.1 0.2 } values { 3 2 } }\n"
                "}");
    auto* p = s.read<CtfVia>();
    ASSERT_NE(p, nullptr);
    const Via& v = p->via;
    EXPECT_EQ(v.name, "V1");
    EXPECT_EQ(v.bottom, "M1");
    EXPECT_EQ(v.top, "M2");
    EXPECT_DOUBLE_EQ(v.via_size, 0.05);
    EXPECT_DOUBLE_EQ(v.rpv, 5.0);
    EXPECT_DOUBLE_EQ(v.rho, -1.0);
    // Length model first, then width model; at width 0.2, length 0.1 (third value) the tuple
    // (0.05 0.06) stands unchanged.
    ASSERT_EQ(v.etch.size(), 2u);
    EXPECT_DOUBLE_EQ(v.etch[0]->values[2], 0.05);
    EXPECT_DOUBLE_EQ(v.etch[1]->values[2], 0.06);
    ASSERT_NE(v.rpv_area, nullptr);
    EXPECT_DOUBLE_EQ(v.rpv_area->getResist(0.01), 6.0);
    ASSERT_NE(v.rpv_wl, nullptr);
    EXPECT_DOUBLE_EQ(v.rpv_wl->getRPV(0.1, 0.2), 2.0);
    EXPECT_TRUE(v.gate_etch.empty());

    Statement g("via CO { bottom OD top M1 rho 0.1\n" + std::string(kGateEtch) + "}");
    const Via& gv = g.read<CtfVia>()->via;
    ASSERT_EQ(gv.gate_etch.size(), 2u);
    EXPECT_EQ(gv.gate_etch_names, (std::vector<std::string>{"G1", "G2"}));
    EXPECT_DOUBLE_EQ(gv.gate_etch[1]->values[0], 0.2);
    EXPECT_TRUE(gv.etch.empty());
}

TEST(CtfVia, ValueRulesAndFields) {
    for (const char* word : {"via_size", "rpv", "rho"}) {
        const std::string text = "via V {\n bottom M1 top M2\n " + std::string(word) + " 0 }";
        EXPECT_EQ(errorOf(text), errorAt(text, word, 1, "invalid value"));
    }
    EXPECT_STATEMENT_ERROR("via { }", "via", 1, "expecting via name");
    EXPECT_STATEMENT_ERROR("via V { layer_type X }", "layer_type", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR("via V { widths { 1 } }", "widths", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR("via V { is_gate }", "is_gate", 1, "unknow field in the table");
    const char* one_etch = "only one etch modeling is allowed for one via layer";
    EXPECT_STATEMENT_ERROR("via V {" + std::string(kViaEtch) + kViaEtch + "}", "width_var_from_wl",
                           2, one_etch);
    EXPECT_STATEMENT_ERROR("via V {" + std::string(kViaEtch) + kGateEtch + "}",
                           "width_var_from_contact_gate_s", 1, one_etch);
    EXPECT_STATEMENT_ERROR("via V {" + std::string(kGateEtch) + kViaEtch + "}", "width_var_from_wl",
                           1, one_etch);

    EXPECT_EQ(logOf("via V { bottom M1 top M2 rho 1\n er 3\n device_type { a }\n"
                    " tall_via_config { }\n csub_vs_spacing { (1 1) } }"),
              unsupported("er", 2, 1) + unsupported("device_type", 3, 1) +
                  unsupported("tall_via_config", 4, 1) + unsupported("csub_vs_spacing", 5, 1));
}

TEST(CtfVia, EndRules) {
    auto atKeyword = [](const std::string& body, const char* message) {
        expectAtKeyword("\n\n via V {" + body + "}", "via", message);
    };
    auto reads = [](const std::string& body) {
        Statement s("via V {" + body + "}");
        EXPECT_EQ(s.error(), "no error") << body;
    };
    const char* names = "must specify both the via top and via bottom layer name";
    atKeyword(" bottom M1 rho 1 ", names);
    atKeyword(" top M1 rho 1 ", names);
    atKeyword(" bottom M1 top M2 rho 1 rpv 2 via_size 1 ",
              "cannot specify both the rho and rpv values for the same via layer");
    reads(" bottom substrate top M1 ");
    reads(" bottom SUBSTRATE top M1 rpv 3 ");
    const char* none =
        "must specfiy via resistance by using rho, rpv, rpv_vs_area, or "
        "rpv_vs_width_and_length field";
    atKeyword(" bottom Substrate top M1 ", none);
    atKeyword(" bottom M1 top M2 via_size 1 ", none);
    atKeyword(" bottom M1 top M2 rpv 3 ", "must specify the via_size value when using rpv field");
    reads(" bottom M1 top M2 rpv 3 via_size 0.1 ");
    reads(" bottom M1 top M2 rho 3 ");
    reads(" bottom M1 top M2 rpv_vs_area { (1 1) } ");
    reads(" bottom M1 top M2 rpv_vs_width_and_length { widths { 1 } lengths { 1 } values { 1 } } ");
}

TEST(CtfTSV, FullStatementAndRules) {
    Statement s(
        "tsv T1 {\n bottom M1 top BM1 via_size 5 rho 0.02 thickness 50\n"
        " insulation_thickness 0.2 insulation_er 3.9 crt1 1 crt2 1 t_zero 25\n"
        " csub_vs_spacing { (1 2) } rsub_vs_spacing { (1 2) }\n"
        " ceff_vs_frq_and_spacing { frq { 1 2 } spacings { 1 } values { 1 2 } }\n}");
    auto* p = s.read<CtfTSV>();
    ASSERT_NE(p, nullptr);
    const TSV& t = p->tsv;
    EXPECT_EQ(t.name, "T1");
    EXPECT_EQ(t.bottom, "M1");
    EXPECT_EQ(t.top, "BM1");
    EXPECT_DOUBLE_EQ(t.via_size, 5.0);
    EXPECT_DOUBLE_EQ(t.rho, 0.02);
    EXPECT_DOUBLE_EQ(t.thickness, 50.0);
    EXPECT_DOUBLE_EQ(t.insulation_thickness, 0.2);
    EXPECT_DOUBLE_EQ(t.insulation_er, 3.9);

    for (const char* word :
         {"via_size", "rho", "thickness", "insulation_thickness", "insulation_er"}) {
        const std::string text = "tsv T {\n  " + std::string(word) + " 0 }";
        EXPECT_EQ(errorOf(text), errorAt(text, word, 1, "invalid value"));
    }
    EXPECT_STATEMENT_ERROR("tsv { }", "tsv", 1, "expecting TSV name");
    EXPECT_STATEMENT_ERROR("tsv T { er 1 }", "er", 1, "unknow field");
    EXPECT_STATEMENT_ERROR("tsv T { layer_type X }", "layer_type", 1, "unknow field");
    EXPECT_STATEMENT_ERROR("tsv T { er_sispacing { (1 1) } }", "er_sispacing", 1, "unknow field");
    EXPECT_STATEMENT_ERROR("tsv T { widths { 1 } }", "widths", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR("tsv T { is_gate }", "is_gate", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR("tsv T { tall_via_config { } }", "tall_via_config", 1,
                           "unknow field in the table");

    auto atKeyword = [](const std::string& body, const char* message) {
        expectAtKeyword(" tsv T {" + body + "}", "tsv", message);
    };
    const char* names = "must specify both the tsv top and tsv bottom layer name";
    atKeyword(" top A thickness 1 ", names);
    atKeyword(" bottom A thickness 1 ", names);
    atKeyword(" bottom A top B ", "must specify thickness value");
    const char* insulation = "must specify both the insulation_thickness and insulation_er value";
    atKeyword(" bottom A top B thickness 1 insulation_er 3 ", insulation);
    atKeyword(" bottom A top B thickness 1 insulation_thickness 3 ", insulation);
}

TEST(LayerRecords, DielectricAndViaCopiesOwnTheirModels) {
    Statement d("dielectric SP { er 7 bottom PO side_thickness 0.01\n" + std::string(kSpacer) +
                "}");
    const ConformalLayer& layer = d.read<CtfDielectric>()->layer;
    std::vector<ConformalLayer> layers(20, layer);
    EXPECT_NE(layers[3].spacer_model, layer.spacer_model);
    layers[3].spacer_model->values[0] = 99;
    EXPECT_DOUBLE_EQ(layer.spacer_model->values[0], 5.0);
    layers[0] = layers[3];
    EXPECT_DOUBLE_EQ(layers[0].spacer_model->values[0], 99.0);
    EXPECT_NE(layers[0].spacer_model, layers[3].spacer_model);
    ConformalLayer moved(std::move(layers[5]));
    EXPECT_EQ(layers[5].spacer_model, nullptr);
    EXPECT_NE(moved.spacer_model, nullptr);

    Statement v("via V { bottom M1 top M2 rho 1\n" + std::string(kGateEtch) +
                " rpv_vs_area { (1 1) }\n"
                " rpv_vs_width_and_length { widths { 1 } lengths { 1 } values { 1 } } }");
    const Via& via = v.read<CtfVia>()->via;
    std::vector<Via> vias;
    for (int i = 0; i < 20; ++i) vias.push_back(via);
    EXPECT_NE(vias[7].gate_etch[0], via.gate_etch[0]);
    EXPECT_NE(vias[7].rpv_area, via.rpv_area);
    EXPECT_NE(vias[7].rpv_wl, via.rpv_wl);
    EXPECT_EQ(vias[7].gate_etch_names, via.gate_etch_names);
    vias[2] = std::move(vias[9]);
    vias.erase(vias.begin() + 4, vias.begin() + 12);
    vias[1].clearModels();
    EXPECT_TRUE(vias[1].gate_etch.empty());
    EXPECT_TRUE(vias[1].gate_etch_names.empty());
    EXPECT_EQ(vias[1].rpv_area, nullptr);
}

}  // namespace
