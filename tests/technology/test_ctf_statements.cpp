// The statements other than the conductor: the fin and pillar transistor models, the
// gate-to-diffusion capacitance table with its sub tables, and the dielectric, via and tsv
// statements. Each full statement is read into its record, each value and end-of-statement rule
// is checked with the word it reports, and the records own their models.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tech_test_util.h"
#include "technology/ctf_device.h"
#include "technology/ctf_dielectric.h"
#include "technology/ctf_tsv.h"
#include "technology/ctf_via.h"

namespace {

using namespace tech_test;

// The required fields of a fin model, in the order their absence is reported.
std::string fin(const std::string& extra) {
    return "multigate FIN1 {\n fin_spacing 0.05 fin_w 0.01 fin_thickness 0.04\n"
           " gate_oxide_side_t 0.002 gate_oxide_top_t 0.003 gate_poly_top_t 0.02\n"
           " gate_oxide_er 20 channel_er 11.9 gate_diffusion_layer_pair { (PO OD) }\n" +
           extra + "}";
}

TEST(CtfMultiGate, FullStatementFillsTheModel) {
    Reader r(
        fin("  fin_l 0.5 raised_diffusion_growth 0 gate_poly_extension 0.004\n"
            "  gate_diffusion_layer_pair { (PO2 OD2) (PO3 OD3) }\n"));
    const MultiGateModel& g = r.read<CtfMultiGate>()->model;
    // An unset gate_poly_side_t becomes 0; every other value differs from the rest.
    EXPECT_TRUE(near({g.fin_spacing, g.fin_w, g.fin_l, g.fin_thickness, g.raised_diffusion_growth,
                      g.gate_poly_extension, g.gate_poly_side_t, g.gate_poly_top_t,
                      g.gate_oxide_side_t, g.gate_oxide_top_t, g.gate_oxide_er, g.channel_er},
                     {0.05, 0.01, 0.5, 0.04, 0, 0.004, 0, 0.02, 0.002, 0.003, 20, 11.9}));
    ASSERT_EQ(g.layer_pairs.size(), 3u);
    EXPECT_EQ(g.name + g.layer_pairs[2].first + g.layer_pairs[2].second, "FIN1PO3OD3");

    // A second statement starts from scratch: fin_l stays unset, which is allowed.
    EXPECT_DOUBLE_EQ(Reader(fin("")).read<CtfMultiGate>()->model.fin_l, -1.0);
    // Side thickness 0 with an extension beyond the oxide side thickness (0.002) passes.
    EXPECT_EQ(errorOf(fin(" gate_poly_side_t 0 gate_poly_extension 0.0021\n")), "no error");
}

TEST(CtfMultiGate, ErrorTexts) {
    // {field, whether 0 passes}
    const std::pair<std::string, bool> rules[] = {
        {"fin_spacing", false},     {"fin_w", false},           {"raised_diffusion_growth", true},
        {"gate_poly_top_t", false}, {"gate_poly_side_t", true}, {"gate_oxide_er", false},
    };
    std::vector<ErrorCase> cases = {
        {"multigate { fin_w 1 }", "multigate", 1, "expecting multigate model name"},
        {"multigate F {\n  thickness 1 }", "thickness", 1, kUnknowClass},
        {"multigate F { fin_w 1\n gate_diffusion_layer_pair { } }", "gate_diffusion_layer_pair", 1,
         "must specify one gate-diffusion layer pair"},
        {"multigate F { fin_w 1", "1", 1, "cannot find the end of the table"},
        {fin(" gate_poly_side_t 0.001 gate_poly_extension 0.01\n"), "multigate", 1,
         "gate_poly_side_t and gate_poly_extension can not"},
        // The extension must exceed the oxide side thickness (0.002) strictly.
        {fin(" gate_poly_extension 0.002\n"), "multigate", 1, "value of gate_poly_extension"}};
    for (const auto& [w, zero_passes] : rules) {
        const std::string message =
            w + (zero_passes ? " can not be negative value" : " must be greater than zero");
        cases.push_back({"multigate F {\n  " + w + " -0.1 }", w, 1, message});
        if (zero_passes)
            EXPECT_EQ(errorOf("multigate F {\n  " + w + " 0 }").find(message), std::string::npos);
        else
            cases.push_back({"multigate F {\n  " + w + " 0 }", w, 1, message});
    }
    expectErrors(cases);
}

// The required fields of a pillar model, in the order their absence is reported.
const std::vector<std::string> kPillarLines = {"waist_size 0.1",    "core_size 0.2",
                                               "source_height 0.3", "drain_height 0.4",
                                               "gate_height 0.5",   "gate_oxide_thickness 0.01",
                                               "gate_oxide_er 3.9", "channel_er 11.9"};

std::string pillar(const std::string& extra, bool with_layers = true) {
    std::string text = "samt_vpt V1 {\n";
    for (const std::string& line : kPillarLines) text += " " + line;
    if (with_layers)
        text += "\n gate_expansion_range 0.02 drain_layer D gate_layer G source_layer S";
    return text + "\n" + extra + "}";
}

TEST(CtfSAMT_VPT, FullStatementFillsTheModel) {
    Reader r(
        pillar(" waist_corner_radius 0.04 corner_rounding_points 7.8\n"
               " gate_expansion_slice 0.005\n"));
    const SAMT_VPT_Model& m = r.read<CtfSAMT_VPT>()->model;
    EXPECT_TRUE(
        near({m.core_size, m.waist_size, m.waist_corner_radius, m.source_height, m.drain_height,
              m.gate_height, m.gate_expansion_range, m.gate_oxide_thickness, m.gate_expansion_slice,
              m.gate_oxide_er, m.channel_er, 1.0 * m.corner_rounding_points},
             {0.2, 0.1, 0.04, 0.3, 0.4, 0.5, 0.02, 0.01, 0.005, 3.9, 11.9, 7}));
    EXPECT_EQ(m.name + m.drain_layer + m.gate_layer + m.source_layer, "V1DGS");

    // A radius that is not positive means "no rounding".
    EXPECT_DOUBLE_EQ(
        Reader(pillar(" waist_corner_radius 0\n")).read<CtfSAMT_VPT>()->model.waist_corner_radius,
        -1.0);
    // Twice the radius must stay below the waist (0.1).
    EXPECT_EQ(errorOf(pillar(" waist_corner_radius 0.0499\n")), "no error");
}

TEST(CtfSAMT_VPT, ErrorTexts) {
    const std::string swapped =
        pillar("").replace(pillar("").find("core_size 0.2"), 13, "core_size 0.05");
    const std::string no_range = pillar(" gate_expansion_range 0\n");
    std::vector<ErrorCase> cases = {
        {"samt_vpt V { gate_expansion_range -0.1 }", "gate_expansion_range", 1,
         "gate_expansion_range can not be negative"},
        {"samt_vpt V { fin_w 1 }", "fin_w", 1, kUnknowClass},
        {"samt_vpt { }", "samt_vpt", 1, "expecting samt_vpt model name"},
        {pillar(" waist_corner_radius 0.05\n"), "samt_vpt", 1,
         "waist_corner_radius must be smaller"},
        {swapped, "samt_vpt", 1, "core_size must be greater than waist_size"},
        {no_range, "samt_vpt", 1, "gate_expansion_range can not be zero"},
        {pillar(" gate_layer G source_layer S", false), "samt_vpt", 1,
         "drain_layer must be specified"}};
    for (const char* word :
         {"core_size", "source_height", "drain_height", "gate_expansion_slice"}) {
        // drain_height reports with the source word.
        const std::string subject = std::string(word) == "drain_height" ? "source_height" : word;
        for (const char* value : {"-1", "0"})
            cases.push_back({"samt_vpt V {\n  " + std::string(word) + " " + value + " }", word, 1,
                             subject + " must be greater than zero"});
    }
    for (std::size_t missing = 0; missing < kPillarLines.size(); ++missing) {
        std::string text = "samt_vpt V {";
        for (std::size_t i = 0; i < missing; ++i) text += " " + kPillarLines[i];
        const std::string field = kPillarLines[missing].substr(0, kPillarLines[missing].find(' '));
        cases.push_back({text + " }", "samt_vpt", 1, field + " must be specified"});
    }
    expectErrors(cases);

    // With core and waist within 1e-5 of each other a zero range is fine.
    EXPECT_EQ(errorOf(std::string(no_range).replace(no_range.find("core_size 0.2"), 13,
                                                    "core_size 0.100009")),
              "no error");
}

TEST(CtfGate2Diff_cap, ErrorTexts) {
    const char* no_count = "num_tables field must be specified at the beginning ot the width_var";
    const char* dims = "dimensions of contact2contact_spacings and gate2contact_spacings vectors";
    auto sub = [](const std::string& body) {
        return "gate2diffusion_cap { num_tables 1\n OD {" + body + "} }";
    };
    expectErrors({
        {"gate2diffusion_cap {\n thickness 2 }", "thickness", 1, no_count},
        {"gate2diffusion_cap {\n num_tables 0.5 }", "num_tables", 1, "invalid sub table number"},
        {"gate2diffusion_cap { num_tables 1\n A\n gate_w { 1 } }", "gate_w", 1,
         "expecting sub table content"},
        {sub(" rho 2 "), "rho", 1, "unknown field in the sub table"},
        {sub(" gate_w { 1 } caps_per_micron { 1 } "), "OD", 1, kMissing},
        // With gate_pitch the gate-to-contact axis does not stand in for the one it needs.
        {sub(" gate_pitch { 1 } gate2contact_spacings { 1 } caps_per_micron { 1 } "), "OD", 1,
         kMissing},
        // 2 widths by 2 spacings need 4 values; with gate_pitch the product uses the
        // contact-to-contact axis (3 values here).
        {sub(" gate_w { 1 2 } gate2contact_spacings { 1 2 } caps_per_micron { 1 2 3 } "), "OD", 1,
         dims},
        {sub(" gate_pitch { 1 2 } gate2contact_spacings { 1 2 } "
             "contact2contact_spacings { 1 2 3 } caps_per_micron { 1 2 3 4 } "),
         "OD", 1, dims},
    });

    // An error inside the table leaves no sub table reader behind.
    Reader r("gate2diffusion_cap { num_tables 1\n rho 3 }");
    EXPECT_NE(r.error(), "no error");
    EXPECT_EQ(r.ci.default_processor, nullptr);
}

const std::string kSpacer =
    " spacer_er_from_gate_ws { widths { 0.1 0.2 } spacings { 1 } values { 5 6 } }\n";

TEST(CtfDielectric, PlanarAndConformalLayers) {
    Reader planar(
        "dielectric D1 { thickness 0.3 er 4.2 damage_size 0.01 damage_er 5\n"
        " bw_t 0 is_conformal }");
    const ConformalLayer& d = planar.read<CtfDielectric>()->layer;
    EXPECT_TRUE(d.name == "D1" && d.bottoms.empty());
    // A zero bw_t counts as absent; the side thickness stays unset.
    EXPECT_TRUE(near({d.thickness, d.er, d.damage_size, d.damage_er, d.bw_t, d.side_thickness},
                     {0.3, 4.2, 0.01, 5, -1, -1}));

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
    double out = 0;
    ASSERT_TRUE(s.spacer_model && s.spacer_model->evalEtch(0.2, 1, out) == 1);
    EXPECT_DOUBLE_EQ(out, 6.0);

    // The record owns its model: copies and assignments own theirs (each freed once at the end).
    std::vector<ConformalLayer> layers(3, s);
    layers[0] = layers[1];
    layers[0].spacer_model->values[0] = 99;
    EXPECT_DOUBLE_EQ(layers[1].spacer_model->values[0] + s.spacer_model->values[0], 10.0);
}

TEST(CtfDielectric, ErrorTexts) {
    auto field = [](const char* f) { return "dielectric D {\n er 3\n  " + std::string(f) + " }"; };
    // Rules checked at the end of the statement report at its keyword.
    auto end = [](const std::string& body) { return "\n dielectric D {" + body + "}"; };
    const char* d = "dielectric";
    expectErrors({
        {field("thickness -0.1"), "thickness", 1, "invalid value"},
        {field("damage_size 0.001"), "damage_size", 1, "invalid damage_size value"},
        {field("damage_er 0"), "damage_er", 1, "invalid value"},
        {end(" thickness 1 "), d, 1, "no permittivity is specified"},
        {end(" er 3 thickness 1 damage_er 4 "), d, 1,
         "must specify both damage_size and damage_er"},
        {end(" er 3 thickness 1 bw_t 0.01 "), d, 1,
         "only conformal dielectric layer can have bw_t"},
        {end(" er 3 thickness 1 " + kSpacer), d, 1,
         "only conformal dielectric layer can have spacer_er"},
        {end(" er 3 bottom M1 bw_t 0.01 side_thickness 0.01 "), d, 1,
         "the conformal layers which have bw_t attribte must not"},
        {end(" er 3 bottom M1 side_thickness 0.01 damage_er 3 "), d, 1,
         "damage modeling cannot be applied"},
        {end(" er 3 bottom M1 bottom M2 side_thickness 0.01 " + kSpacer), d, 1,
         "conformal layers with spacer_er_from_gate_ws model can not"},
        {"dielectric D { er 0 }", "er", 1, "invalid permittivity value"},
        {"dielectric { er 3 }", d, 1, "expecting dielectric name"},
        {"dielectric D { er 3 widths { 1 } }", "widths", 1, kUnknowClass},
    });
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
    ASSERT_TRUE(via.gate_etch.size() == 2 && via.etch.empty());
    EXPECT_EQ(via.gate_etch_names, (std::vector<std::string>{"G1", "G2"}));
    EXPECT_DOUBLE_EQ(via.gate_etch[1]->values[0], 0.2);

    // The record owns its models: a copy has its own.
    const Via copy = via;
    EXPECT_NE(copy.gate_etch[0], via.gate_etch[0]);

    Reader ignored(
        "via V { bottom M1 top M2 rho 1\n er 3\n device_type { a }\n tall_via_config { }\n"
        " csub_vs_spacing { (1 1) } }");
    testing::internal::CaptureStdout();
    EXPECT_EQ(ignored.error(), "no error");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              unsupported("er", 2, 1) + unsupported("device_type", 3, 1) +
                  unsupported("tall_via_config", 4, 1) + unsupported("csub_vs_spacing", 5, 1));
}

TEST(CtfVia, ErrorTexts) {
    const char* one_etch = "only one etch modeling is allowed";
    auto zero = [](const char* f) {
        return "via V {\n bottom M1 top M2\n " + std::string(f) + " 0 }";
    };
    auto end = [](const char* body) { return "\n\n via V {" + std::string(body) + "}"; };
    expectErrors({
        {zero("via_size"), "via_size", 1, "invalid value"},
        {zero("rpv"), "rpv", 1, "invalid value"},
        {zero("rho"), "rho", 1, "invalid value"},
        {end(" bottom M1 rho 1 "), "via", 1, "must specify both the via top and via bottom"},
        {end(" bottom Substrate top M1 "), "via", 1,
         "must specfiy via resistance by using rho, rpv"},
        {end(" bottom M1 top M2 rpv 3 "), "via", 1, "must specify the via_size value"},
        {"via { }", "via", 1, "expecting via name"},
        {"via V {" + kViaEtch + kViaEtch + "}", "width_var_from_wl", 2, one_etch},
        {"via V {" + kViaEtch + kGateEtch + "}", "width_var_from_contact_gate_s", 1, one_etch},
        {"via V {" + kGateEtch + kViaEtch + "}", "width_var_from_wl", 1, one_etch},
    });

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

    auto end = [](const char* body) { return " tsv T {" + std::string(body) + "}"; };
    expectErrors({
        {"tsv T {\n  via_size 0 }", "via_size", 1, "invalid value"},
        {"tsv T {\n  insulation_er 0 }", "insulation_er", 1, "invalid value"},
        {end(" top A thickness 1 "), "tsv", 1, "must specify both the tsv top and tsv bottom"},
        {end(" bottom A top B "), "tsv", 1, "must specify thickness value"},
        {end(" bottom A top B thickness 1 insulation_er 3 "), "tsv", 1,
         "must specify both the insulation_thickness and insulation_er"},
        {"tsv { }", "tsv", 1, "expecting TSV name"},
        {"tsv T { er 1 }", "er", 1, kUnknowField},
        {"tsv T { widths { 1 } }", "widths", 1, kUnknowClass},
    });
}

}  // namespace
