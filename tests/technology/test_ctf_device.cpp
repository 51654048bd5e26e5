// Device model statements: the fin and pillar transistor models, each value rule with the word it
// reports, the end-of-statement rules in their order, and the gate-to-diffusion capacitance table
// with its sub tables.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tech_test_util.h"
#include "technology/ctf_device.h"

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
    auto* m = r.read<CtfMultiGate>();
    ASSERT_NE(m, nullptr);
    const MultiGateModel& g = m->model;
    EXPECT_EQ(g.name, "FIN1");
    EXPECT_TRUE(near({g.fin_spacing, g.fin_w, g.fin_l, g.fin_thickness, g.raised_diffusion_growth,
                      g.gate_poly_extension, g.gate_poly_side_t, g.gate_poly_top_t,
                      g.gate_oxide_side_t, g.gate_oxide_top_t, g.gate_oxide_er, g.channel_er},
                     {0.05, 0.01, 0.5, 0.04, 0, 0.004, 0, 0.02, 0.002, 0.003, 20,
                      11.9}));  // an unset gate_poly_side_t becomes 0
    ASSERT_EQ(g.layer_pairs.size(), 3u);
    EXPECT_EQ(g.layer_pairs[2].first + g.layer_pairs[2].second, "PO3OD3");

    // A second statement starts from scratch: fin_l stays unset, which is allowed.
    EXPECT_DOUBLE_EQ(Reader(fin("")).read<CtfMultiGate>()->model.fin_l, -1.0);
    // Side thickness 0 with an extension beyond the oxide side thickness (0.002) passes.
    EXPECT_EQ(errorOf(fin(" gate_poly_side_t 0 gate_poly_extension 0.0021\n")), "no error");
}

TEST(CtfMultiGate, ErrorTexts) {
    struct Rule {
        const char* word;
        bool zero_passes;
    };
    const Rule rules[] = {
        {"fin_spacing", false},     {"fin_w", false},           {"raised_diffusion_growth", true},
        {"gate_poly_top_t", false}, {"gate_poly_side_t", true}, {"gate_oxide_er", false},
    };
    std::vector<ErrorCase> cases;
    for (const Rule& r : rules) {
        const std::string w = r.word;
        const std::string message =
            w + (r.zero_passes ? " can not be negative value" : " must be greater than zero");
        cases.push_back({"multigate F {\n  " + w + " -0.1 }", w, 1, message});
        if (r.zero_passes)
            EXPECT_EQ(errorOf("multigate F {\n  " + w + " 0 }").find(message), std::string::npos);
        else
            cases.push_back({"multigate F {\n  " + w + " 0 }", w, 1, message});
    }
    cases.insert(
        cases.end(),
        {{"multigate { fin_w 1 }", "multigate", 1, "expecting multigate model name"},
         {"multigate F {\n  thickness 1 }", "thickness", 1, kUnknowClass},
         {"multigate F { fin_w 1\n gate_diffusion_layer_pair { } }", "gate_diffusion_layer_pair", 1,
          "must specify one gate-diffusion layer pair"},
         {"multigate F { fin_w 1", "1", 1, "cannot find the end of the table"},
         {fin(" gate_poly_side_t 0.001 gate_poly_extension 0.01\n"), "multigate", 1,
          "gate_poly_side_t and gate_poly_extension can not"},
         // The extension must exceed the oxide side thickness (0.002) strictly.
         {fin(" gate_poly_extension 0.002\n"), "multigate", 1, "value of gate_poly_extension"}});
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
    auto* p = r.read<CtfSAMT_VPT>();
    ASSERT_NE(p, nullptr);
    const SAMT_VPT_Model& m = p->model;
    EXPECT_EQ(m.name, "V1");
    EXPECT_TRUE(near({m.core_size, m.waist_size, m.waist_corner_radius, m.source_height,
                      m.drain_height, m.gate_height, m.gate_expansion_range, m.gate_oxide_thickness,
                      m.gate_expansion_slice, m.gate_oxide_er, m.channel_er},
                     {0.2, 0.1, 0.04, 0.3, 0.4, 0.5, 0.02, 0.01, 0.005, 3.9, 11.9}));
    EXPECT_EQ(m.corner_rounding_points, 7);
    EXPECT_EQ(m.drain_layer + m.gate_layer + m.source_layer, "DGS");

    // A radius that is not positive means "no rounding".
    EXPECT_DOUBLE_EQ(
        Reader(pillar(" waist_corner_radius 0\n")).read<CtfSAMT_VPT>()->model.waist_corner_radius,
        -1.0);
    // Twice the radius must stay below the waist (0.1).
    EXPECT_EQ(errorOf(pillar(" waist_corner_radius 0.0499\n")), "no error");
}

TEST(CtfSAMT_VPT, ErrorTexts) {
    std::vector<ErrorCase> cases;
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
    const std::string swapped =
        pillar("").replace(pillar("").find("core_size 0.2"), 13, "core_size 0.05");
    const std::string no_range = pillar(" gate_expansion_range 0\n");
    cases.insert(cases.end(),
                 {{"samt_vpt V { gate_expansion_range -0.1 }", "gate_expansion_range", 1,
                   "gate_expansion_range can not be negative"},
                  {"samt_vpt V { fin_w 1 }", "fin_w", 1, kUnknowClass},
                  {"samt_vpt { }", "samt_vpt", 1, "expecting samt_vpt model name"},
                  {pillar(" waist_corner_radius 0.05\n"), "samt_vpt", 1,
                   "waist_corner_radius must be smaller"},
                  {swapped, "samt_vpt", 1, "core_size must be greater than waist_size"},
                  {no_range, "samt_vpt", 1, "gate_expansion_range can not be zero"},
                  {pillar(" gate_layer G source_layer S", false), "samt_vpt", 1,
                   "drain_layer must be specified"}});
    expectErrors(cases);

    // With core and waist within 1e-5 of each other a zero range is fine.
    std::string near = no_range;
    near.replace(near.find("core_size 0.2"), 13, "core_size 0.100009");
    EXPECT_EQ(errorOf(near), "no error");
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

}  // namespace
