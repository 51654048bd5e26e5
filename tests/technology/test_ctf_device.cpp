// Device model statements: the fin and pillar transistor models, each value rule with the word it
// reports, the end-of-statement rules in their order, and the gate-to-diffusion capacitance table
// with its sub tables.
#include <gtest/gtest.h>

#include <string>

#include "ctf_statement_test_util.h"
#include "technology/ctf_device.h"

namespace {

using stmt_test::errorAt;
using stmt_test::errorOf;
using stmt_test::Statement;

const std::string kFinBody =
    "  fin_spacing 0.05\n  fin_w 0.01\n  fin_thickness 0.04\n  gate_oxide_side_t 0.002\n"
    "  gate_oxide_top_t 0.003\n  gate_poly_top_t 0.02\n  gate_oxide_er 20\n  channel_er 11.9\n"
    "  gate_diffusion_layer_pair { (PO OD) }\n";

std::string fin(const std::string& extra, const std::string& body = kFinBody) {
    return "multigate FIN1 {\n" + body + extra + "}";
}

TEST(CtfMultiGate, FullStatementFillsTheModel) {
    Statement s(
        fin("  fin_l 0.5 raised_diffusion_growth 0 gate_poly_extension 0.004\n"
            "  gate_diffusion_layer_pair { (PO2 OD2) (PO3 OD3) }\n"));
    auto* m = s.read<CtfMultiGate>();
    ASSERT_NE(m, nullptr);
    const MultiGateModel& g = m->model;
    EXPECT_EQ(g.name, "FIN1");
    EXPECT_DOUBLE_EQ(g.fin_spacing, 0.05);
    EXPECT_DOUBLE_EQ(g.fin_w, 0.01);
    EXPECT_DOUBLE_EQ(g.fin_l, 0.5);
    EXPECT_DOUBLE_EQ(g.fin_thickness, 0.04);
    EXPECT_DOUBLE_EQ(g.raised_diffusion_growth, 0.0);
    EXPECT_DOUBLE_EQ(g.gate_poly_extension, 0.004);
    EXPECT_DOUBLE_EQ(g.gate_poly_side_t, 0.0);  // unset becomes 0
    EXPECT_DOUBLE_EQ(g.gate_poly_top_t, 0.02);
    EXPECT_DOUBLE_EQ(g.gate_oxide_side_t, 0.002);
    EXPECT_DOUBLE_EQ(g.gate_oxide_top_t, 0.003);
    EXPECT_DOUBLE_EQ(g.gate_oxide_er, 20.0);
    EXPECT_DOUBLE_EQ(g.channel_er, 11.9);
    ASSERT_EQ(g.layer_pairs.size(), 3u);
    EXPECT_EQ(g.layer_pairs[0], std::make_pair(std::string("PO"), std::string("OD")));
    EXPECT_EQ(g.layer_pairs[2], std::make_pair(std::string("PO3"), std::string("OD3")));
    EXPECT_EQ(s.ci.stream.token(), "}");

    // A second statement starts from scratch: fin_l stays unset, which is allowed.
    Statement t(fin(""));
    EXPECT_DOUBLE_EQ(t.read<CtfMultiGate>()->model.fin_l, -1.0);
}

TEST(CtfMultiGate, EachValueRuleReportsAtItsAttribute) {
    struct Case {
        const char* word;
        bool zero_passes;
        const char* message;
    };
    const Case cases[] = {
        {"fin_spacing", false, "fin_spacing must be greater than zero"},
        {"fin_w", false, "fin_w must be greater than zero"},
        {"fin_l", false, "fin_l must be greater than zero"},
        {"fin_thickness", false, "fin_thickness must be greater than zero"},
        {"raised_diffusion_growth", true, "raised_diffusion_growth can not be negative value"},
        {"gate_poly_extension", true, "gate_poly_extension can not be negative value"},
        {"gate_poly_top_t", false, "gate_poly_top_t must be greater than zero"},
        {"gate_poly_side_t", true, "gate_poly_side_t can not be negative value"},
        {"gate_oxide_top_t", false, "gate_oxide_top_t must be greater than zero"},
        {"gate_oxide_side_t", false, "gate_oxide_side_t must be greater than zero"},
        {"gate_oxide_er", false, "gate_oxide_er must be greater than zero"},
        {"channel_er", false, "channel_er must be greater than zero"},
    };
    for (const Case& c : cases) {
        const std::string bad = "multigate F {\n  " + std::string(c.word) + " -0.1 }";
        EXPECT_EQ(errorOf(bad), errorAt(bad, c.word, 1, c.message));
        const std::string zero = "multigate F {\n  " + std::string(c.word) + " 0 }";
        if (c.zero_passes)
            EXPECT_EQ(errorOf(zero).find(c.message), std::string::npos) << c.word;
        else
            EXPECT_EQ(errorOf(zero), errorAt(zero, c.word, 1, c.message));
    }
}

TEST(CtfMultiGate, HeadAndFieldErrors) {
    EXPECT_STATEMENT_ERROR("multigate { fin_w 1 }", "multigate", 1,
                           "expecting multigate model name");
    EXPECT_STATEMENT_ERROR("multigate F {\n  thickness 1 }", "thickness", 1,
                           "unknow field in the table");
    EXPECT_STATEMENT_ERROR("multigate F {\n  gate_layer PO }", "gate_layer", 1,
                           "unknow field in the table");
    EXPECT_STATEMENT_ERROR("multigate F { widths { 1 } }", "widths", 1,
                           "unknow field in the table");
    EXPECT_STATEMENT_ERROR("multigate F { fin_w 1\n gate_diffusion_layer_pair { } }",
                           "gate_diffusion_layer_pair", 1,
                           "must specify one gate-diffusion layer pair at least");
    EXPECT_STATEMENT_ERROR("multigate F { fin_w 1", "1", 1, "cannot find the end of the table");
}

TEST(CtfMultiGate, RequiredFieldsAreReportedInOrderAtTheKeyword) {
    // With only the first k required lines present, the (k+1)-th is the one reported.
    const char* lines[] = {"fin_spacing 0.05",
                           "fin_w 0.01",
                           "fin_thickness 0.04",
                           "gate_oxide_side_t 0.002",
                           "gate_oxide_top_t 0.003",
                           "gate_poly_top_t 0.02",
                           "gate_oxide_er 20",
                           "channel_er 11.9",
                           "gate_diffusion_layer_pair { (PO OD) }"};
    const char* messages[] = {"fin_spacing must be specified",
                              "fin_w must be specified",
                              "fin_thickness must be specified",
                              "gate_oxide_side_t must be specified",
                              "gate_oxide_top_t must be specified",
                              "gate_poly_top_t must be specified",
                              "gate_oxide_er must be specified",
                              "channel_er must be specified",
                              "gate_diffusion_layer_pair must be specified"};
    for (int missing = 0; missing < 9; ++missing) {
        std::string text = "\n multigate F {";
        for (int i = 0; i < missing; ++i) text += std::string(" ") + lines[i];
        text += " }";
        EXPECT_EQ(errorOf(text), errorAt(text, "multigate", 1, messages[missing])) << text;
    }
}

TEST(CtfMultiGate, PolySideAndExtensionRule) {
    // Side thickness 0 with an extension beyond the oxide side thickness passes.
    Statement ok(fin(" gate_poly_side_t 0 gate_poly_extension 0.01\n"));
    auto* m = ok.read<CtfMultiGate>();
    ASSERT_NE(m, nullptr);
    EXPECT_DOUBLE_EQ(m->model.gate_poly_side_t, 0.0);
    EXPECT_DOUBLE_EQ(m->model.gate_poly_extension, 0.01);

    const std::string both = fin(" gate_poly_side_t 0.001 gate_poly_extension 0.01\n");
    EXPECT_EQ(errorOf(both),
              errorAt(both, "multigate", 1,
                      "gate_poly_side_t and gate_poly_extension can not be specified at the "
                      "same time"));
    // The extension must exceed the oxide side thickness (0.002) strictly.
    const std::string equal = fin(" gate_poly_extension 0.002\n");
    EXPECT_EQ(errorOf(equal), errorAt(equal, "multigate", 1,
                                      "value of gate_poly_extension must be larger than "
                                      "gate_oxide_side_t"));
    Statement above(fin(" gate_poly_extension 0.0021\n"));
    EXPECT_NE(above.read<CtfMultiGate>(), nullptr);
}

const std::string kPillarBody =
    " core_size 0.2 waist_size 0.1 source_height 0.3 drain_height 0.4 gate_height 0.5\n"
    " gate_oxide_thickness 0.01 gate_oxide_er 3.9 channel_er 11.9 gate_expansion_range 0.02\n"
    " drain_layer D gate_layer G source_layer S\n";

std::string pillar(const std::string& extra, const std::string& body = kPillarBody) {
    return "samt_vpt V1 {\n" + body + extra + "}";
}

TEST(CtfSAMT_VPT, FullStatementFillsTheModel) {
    Statement s(
        pillar(" waist_corner_radius 0.04 corner_rounding_points 7.8\n"
               " gate_expansion_slice 0.005\n"));
    auto* p = s.read<CtfSAMT_VPT>();
    ASSERT_NE(p, nullptr);
    const SAMT_VPT_Model& m = p->model;
    EXPECT_EQ(m.name, "V1");
    EXPECT_DOUBLE_EQ(m.core_size, 0.2);
    EXPECT_DOUBLE_EQ(m.waist_size, 0.1);
    EXPECT_DOUBLE_EQ(m.waist_corner_radius, 0.04);
    EXPECT_DOUBLE_EQ(m.source_height, 0.3);
    EXPECT_DOUBLE_EQ(m.drain_height, 0.4);
    EXPECT_DOUBLE_EQ(m.gate_height, 0.5);
    EXPECT_DOUBLE_EQ(m.gate_expansion_range, 0.02);
    EXPECT_DOUBLE_EQ(m.gate_oxide_thickness, 0.01);
    EXPECT_DOUBLE_EQ(m.gate_expansion_slice, 0.005);
    EXPECT_EQ(m.corner_rounding_points, 7);
    EXPECT_DOUBLE_EQ(m.gate_oxide_er, 3.9);
    EXPECT_DOUBLE_EQ(m.channel_er, 11.9);
    EXPECT_EQ(m.drain_layer, "D");
    EXPECT_EQ(m.gate_layer, "G");
    EXPECT_EQ(m.source_layer, "S");

    // A radius that is not positive means "no rounding".
    Statement r(pillar(" waist_corner_radius 0\n"));
    EXPECT_DOUBLE_EQ(r.read<CtfSAMT_VPT>()->model.waist_corner_radius, -1.0);
}

TEST(CtfSAMT_VPT, ValueRulesReportAtTheAttribute) {
    const char* positive[][2] = {
        {"core_size", "core_size must be greater than zero"},
        {"waist_size", "waist_size must be greater than zero"},
        {"source_height", "source_height must be greater than zero"},
        {"drain_height", "source_height must be greater than zero"},  // the source word
        {"gate_height", "gate_height must be greater than zero"},
        {"gate_oxide_thickness", "gate_oxide_thickness must be greater than zero"},
        {"gate_oxide_er", "gate_oxide_er must be greater than zero"},
        {"channel_er", "channel_er must be greater than zero"},
        {"gate_expansion_slice", "gate_expansion_slice must be greater than zero"},
    };
    for (const auto& c : positive) {
        for (const char* value : {"-1", "0"}) {
            const std::string text = "samt_vpt V {\n  " + std::string(c[0]) + " " + value + " }";
            EXPECT_EQ(errorOf(text), errorAt(text, c[0], 1, c[1]));
        }
    }
    EXPECT_STATEMENT_ERROR("samt_vpt V { gate_expansion_range -0.1 }", "gate_expansion_range", 1,
                           "gate_expansion_range can not be negative value");
    EXPECT_STATEMENT_ERROR("samt_vpt V { corner_rounding_points -1 }", "corner_rounding_points", 1,
                           "corner_rounding_points can not be negative value");
    EXPECT_STATEMENT_ERROR("samt_vpt V { fin_w 1 }", "fin_w", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR("samt_vpt V { layer_type GATE }", "layer_type", 1,
                           "unknow field in the table");
    EXPECT_STATEMENT_ERROR("samt_vpt V { is_gate }", "is_gate", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR("samt_vpt { }", "samt_vpt", 1, "expecting samt_vpt model name");
}

TEST(CtfSAMT_VPT, EndRulesInOrder) {
    const char* required[][2] = {
        {"waist_size 0.1", "waist_size must be specified"},
        {"core_size 0.2", "core_size must be specified"},
        {"source_height 0.3", "source_height must be specified"},
        {"drain_height 0.4", "drain_height must be specified"},
        {"gate_height 0.5", "gate_height must be specified"},
        {"gate_oxide_thickness 0.01", "gate_oxide_thickness must be specified"},
        {"gate_oxide_er 3.9", "gate_oxide_er must be specified"},
        {"channel_er 11.9", "channel_er must be specified"},
    };
    for (int missing = 0; missing < 8; ++missing) {
        std::string text = "samt_vpt V {";
        for (int i = 0; i < missing; ++i) text += std::string(" ") + required[i][0];
        text += " }";
        EXPECT_EQ(errorOf(text), errorAt(text, "samt_vpt", 1, required[missing][1])) << text;
    }

    auto atKeyword = [](const std::string& text, const char* message) {
        EXPECT_EQ(errorOf(text), errorAt(text, "samt_vpt", 1, message)) << text;
    };
    // Twice the radius must stay below the waist (0.1).
    atKeyword(pillar(" waist_corner_radius 0.05\n"),
              "waist_corner_radius must be smaller than half of the waist_size");
    Statement r(pillar(" waist_corner_radius 0.0499\n"));
    EXPECT_NE(r.read<CtfSAMT_VPT>(), nullptr);

    const std::string swapped =
        " core_size 0.1 waist_size 0.2 source_height 0.3 drain_height 0.4 gate_height 0.5\n"
        " gate_oxide_thickness 0.01 gate_oxide_er 3.9 channel_er 11.9\n";
    atKeyword(pillar("", swapped), "core_size must be greater than waist_size");

    const std::string no_range =
        " core_size 0.2 waist_size 0.1 source_height 0.3 drain_height 0.4 gate_height 0.5\n"
        " gate_oxide_thickness 0.01 gate_oxide_er 3.9 channel_er 11.9 gate_expansion_range 0\n"
        " drain_layer D gate_layer G source_layer S\n";
    atKeyword(pillar("", no_range),
              "gate_expansion_range can not be zero when waist_size and core_size are different");
    // With core and waist within 1e-5 of each other a zero range is fine.
    std::string near = no_range;
    near.replace(near.find("core_size 0.2"), 13, "core_size 0.100009");
    Statement n(pillar("", near));
    EXPECT_NE(n.read<CtfSAMT_VPT>(), nullptr);

    const std::string layers =
        " core_size 0.2 waist_size 0.1 source_height 0.3 drain_height 0.4 gate_height 0.5\n"
        " gate_oxide_thickness 0.01 gate_oxide_er 3.9 channel_er 11.9\n";
    atKeyword(pillar(" gate_layer G source_layer S", layers), "drain_layer must be specified");
    atKeyword(pillar(" gate_layer G drain_layer D", layers), "source_layer must be specified");
    atKeyword(pillar(" source_layer S drain_layer D", layers), "gate_layer must be specified");
}

// A conductor-side table of two sub tables: one over gate width, one over gate pitch.
const std::string kCapTable =
    "gate2diffusion_cap {\n"
    "  num_tables 2\n"
    "  OD1 {\n"
    "    gate_w { 1 2 }\n"
    "    gate2contact_spacings { 0.1 0.2 0.3 }\n"
    "    caps_per_micron { 11 12 13 21 22 23 }\n"
    "  }\n"
    "  OD2 {\n"
    "    caps_per_micron { 5 6 }\n"
    "    contact2contact_spacings { 0.5 0.7 }\n"
    "    gate_pitch { 0.09 }\n"
    "    gate2contact_spacings { 9 }\n"
    "  }\n"
    "}";

TEST(CtfGate2Diff_cap, SubTablesGiveOneModelEach) {
    Statement s(kCapTable + " thickness 1");
    auto* t = s.read<CtfGate2Diff_cap>();
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->models.size(), 2u);
    EXPECT_EQ(t->names, (std::vector<std::string>{"OD1", "OD2"}));

    const GateDiffCapModel& w = t->models[0];
    EXPECT_EQ(w.by_gate_width, 1);
    EXPECT_EQ(w.widths, (std::vector<double>{1, 2}));
    EXPECT_EQ(w.spacings, (std::vector<double>{0.1, 0.2, 0.3}));
    // The caps run along the spacing fastest: gate width 2 at spacing 0.1 is the fourth value,
    // and half way between the two widths at spacing 0.3 lies (13 + 23) / 2.
    double out = 0;
    ASSERT_EQ(w.evalEtch(2, 0.1, out), 1);
    EXPECT_DOUBLE_EQ(out, 21.0);
    ASSERT_EQ(w.evalEtch(1.5, 0.3, out), 1);
    EXPECT_DOUBLE_EQ(out, 18.0);

    const GateDiffCapModel& p = t->models[1];
    EXPECT_EQ(p.by_gate_width, 0);
    EXPECT_EQ(p.widths, (std::vector<double>{0.09}));
    EXPECT_EQ(p.spacings, (std::vector<double>{0.5, 0.7}));
    EXPECT_EQ(p.values, (std::vector<double>{5, 6}));

    // The sub table reader is in force only inside the table.
    EXPECT_EQ(s.ci.default_processor, nullptr);
    s.ci.stream.next();
    EXPECT_NE(dynamic_cast<CtfNumberAttri*>(s.ci.processElem()), nullptr);
}

TEST(CtfGate2Diff_cap, TableCountIsTruncated) {
    const std::string one =
        "gate2diffusion_cap { num_tables 1.9\n"
        " A { gate_w { 1 } gate2contact_spacings { 1 } caps_per_micron { 3 } } }";
    Statement s(one);
    auto* t = s.read<CtfGate2Diff_cap>();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->models.size(), 1u);

    const std::string two =
        "gate2diffusion_cap { num_tables 1.9\n"
        " A { gate_w { 1 } gate2contact_spacings { 1 } caps_per_micron { 3 } }\n"
        " B { gate_w { 1 } gate2contact_spacings { 1 } caps_per_micron { 3 } } }";
    EXPECT_EQ(errorOf(two), errorAt(two, "gate2diffusion_cap", 1,
                                    "number of sub tables do not match with num_tables field"));
}

TEST(CtfGate2Diff_cap, ErrorTexts) {
    const char* no_count =
        "num_tables field must be specified at the beginning ot the "
        "width_var_from_contact_gate_s table";
    EXPECT_STATEMENT_ERROR("gate2diffusion_cap {\n thickness 2 }", "thickness", 1, no_count);
    EXPECT_STATEMENT_ERROR(
        "gate2diffusion_cap {\n A { gate_w { 1 } gate2contact_spacings { 1 } "
        "caps_per_micron { 3 } } }",
        "A", 1, no_count);
    EXPECT_STATEMENT_ERROR("gate2diffusion_cap {\n num_tables 0.5 }", "num_tables", 1,
                           "invalid sub table number of the width_var_from_contact_gate_s table");
    EXPECT_STATEMENT_ERROR("gate2diffusion_cap { num_tables 1\n A\n gate_w { 1 } }", "gate_w", 1,
                           "expecting sub table content beginning with LEFT BRACE");
    EXPECT_STATEMENT_ERROR("gate2diffusion_cap { num_tables 1\n rho 3 }", "rho", 1,
                           "unknown field in the table");

    auto sub = [](const std::string& body) {
        return "gate2diffusion_cap { num_tables 1\n OD {" + body + "} }";
    };
    EXPECT_STATEMENT_ERROR(sub(" rho 2 "), "rho", 1, "unknown field in the sub table");
    EXPECT_STATEMENT_ERROR(sub(" widths { 1 } "), "widths", 1, "unknown field in the sub table");
    EXPECT_STATEMENT_ERROR(sub(" gate_w { 1 } gate_pitch { 1 } "), "gate_pitch", 1,
                           "unknown field in the sub table");
    EXPECT_STATEMENT_ERROR(sub(" gate2contact_spacings { } "), "gate2contact_spacings", 1,
                           "expecting at least one number value in the vector");
    EXPECT_STATEMENT_ERROR(sub(" contact2contact_spacings { 2 1 } "), "contact2contact_spacings", 1,
                           "elements must be in ascending order");
    EXPECT_STATEMENT_ERROR(sub(" gate_w { 1 } caps_per_micron { 1 } "), "OD", 1,
                           "missing necessary fields for the table");
    // With gate_pitch the gate-to-contact axis does not stand in for the one it needs.
    EXPECT_STATEMENT_ERROR(
        sub(" gate_pitch { 1 } gate2contact_spacings { 1 } caps_per_micron { 1 } "), "OD", 1,
        "missing necessary fields for the table");
    // 2 widths by 2 spacings need 4 values; with gate_pitch the product uses the
    // contact-to-contact axis (3 values here).
    const char* dims =
        "dimensions of contact2contact_spacings and gate2contact_spacings vectors do not match "
        "with the values vector";
    EXPECT_STATEMENT_ERROR(
        sub(" gate_w { 1 2 } gate2contact_spacings { 1 2 } caps_per_micron { 1 2 3 } "), "OD", 1,
        dims);
    EXPECT_STATEMENT_ERROR(sub(" gate_pitch { 1 2 } gate2contact_spacings { 1 2 } "
                               "contact2contact_spacings { 1 2 3 } caps_per_micron { 1 2 3 4 } "),
                           "OD", 1, dims);

    // An error inside the table leaves no sub table reader behind.
    Statement s("gate2diffusion_cap { num_tables 1\n rho 3 }");
    EXPECT_NE(s.error(), "no error");
    EXPECT_EQ(s.ci.default_processor, nullptr);
}

}  // namespace
