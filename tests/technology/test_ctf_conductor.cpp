// The conductor statement: a full layer read into its record, every value rule and table
// exclusion with the word it reports, constant width variations, resistance sampling, the
// end-of-statement derivations, and ownership of the models by the record.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ctf_statement_test_util.h"
#include "technology/ctf_conductor.h"

namespace {

using stmt_test::errorAt;
using stmt_test::errorOf;
using stmt_test::Statement;
using stmt_test::SwitchScope;

// A conductor statement named M1 with thickness 0.5 and rho 0.02 unless the body says otherwise.
std::string metal(const std::string& body, bool with_rho = true) {
    return "conductor M1 {\n thickness 0.5\n" + std::string(with_rho ? " rho 0.02\n" : "") + body +
           "}";
}

// Reads `text` as one conductor; fails the test when it does not read.
struct Layer {
    explicit Layer(const std::string& text) : s(text) {
        try {
            p = s.read<CtfConductor>();
        } catch (const Ctf_Error& e) {
            ADD_FAILURE() << e.text;
        }
    }
    const Conductor& operator*() const { return p->conductor; }
    const Conductor* operator->() const { return &p->conductor; }
    Statement s;
    CtfConductor* p = nullptr;
};

// The log lines (without prefix) that reading `text` writes at warning level.
std::string warningsOf(const std::string& text) {
    Statement s(text);
    testing::internal::CaptureStdout();
    try {
        s.ci.processElem();
    } catch (const Ctf_Error& e) {
        ADD_FAILURE() << e.text;
    }
    return testing::internal::GetCapturedStdout();
}

const char* const kEtchTable =
    " width_var_from_ws { widths { 0.1 0.5 } spacings { 0.2 1.0 }\n"
    "   values { 0.01 0.02 0.03 0.04 } }\n";

TEST(CtfConductor, FullStatementFillsTheRecord) {
    Layer c(
        "conductor OD {\n"
        " thickness 0.08 wmin 0.05 smin 0.06 side_tan 0.1 gate2contact_smin 0.03\n"
        " layer_type DIFFUSION\n"
        " raiseddiffu_thickness 0.04 raiseddiffu2gate_smin 0.02 raiseddiffu_etch 0.005\n"
        " raiseddiffu_gateside_conformal_er 7\n"
        " bottom_diel_er 3.9 bottom_diel_thickness 0.01\n"
        " crt1 1 crt2 2 t_zero 25\n" +
        std::string(kEtchTable) +
        " width_var_from_ws resistive_only { widths { 1 } spacings { 1 } values { -0.01 } }\n"
        " width_var_from_ws { nmask 2 mask (1 1) (1 2) (2 1) (2 2) {\n"
        "   widths { 1 } spacings { 1 } values { 0.07 } } }\n"
        " side_tan_vs_si_width_and_spacing { widths { 1 } spacings { 1 } values { 0.2 } }\n"
        " thickness_var_from_ws capacitive_only { widths { 1 } spacings { 1 } values { 0.1 } }\n"
        " thickness_var_from_d { (0.2 -0.1) (0.8 0.1) }\n"
        " bottom_thickness_var_from_si_width resistive_only { (0.1 0.01) (1 0.02) }\n"
        " thickness_vs_density_and_width { widths { 1 } densities { 0.5 } values { 0.03 } }\n"
        " ild_thickness_var_from_effective_ws { dielectric IMD1 widths { 1 } spacings { 1 }\n"
        "   thickness_changes { 0.01 } }\n"
        " densitybox_weight_factor { (10 0.5) (20 0.5) }\n"
        " gate2diffusion_cap { num_tables 1 PO { gate_w { 1 } gate2contact_spacings { 1 }\n"
        "   caps_per_micron { 0.3 } } }\n"
        " rho_vs_width_and_spacing { widths { 1 2 } spacings { 1 } values { 0.4 0.6 } }\n"
        "}");
    ASSERT_NE(c.p, nullptr);
    EXPECT_EQ(c->name, "OD");
    EXPECT_DOUBLE_EQ(c->thickness, 0.08);
    EXPECT_DOUBLE_EQ(c->wmin, 0.05);
    EXPECT_DOUBLE_EQ(c->smin, 0.06);
    EXPECT_DOUBLE_EQ(c->side_tan, 0.1);
    EXPECT_DOUBLE_EQ(c->gate2contact_smin, 0.03);
    EXPECT_EQ(c->layer_type, "DIFFUSION");
    EXPECT_EQ(c->layer_type_code, 2);
    ASSERT_NE(c->raised_diff, nullptr);
    EXPECT_DOUBLE_EQ(c->raised_diff->thickness, 0.04);
    EXPECT_DOUBLE_EQ(c->raised_diff->smin, 0.02);
    EXPECT_DOUBLE_EQ(c->raised_diff->etch, 0.005);
    EXPECT_EQ(c->raised_diff->etch_flag, 1);
    EXPECT_DOUBLE_EQ(c->raised_diff->conformal_er, 7.0);
    EXPECT_DOUBLE_EQ(c->bottom_diel_er, 3.9);
    EXPECT_DOUBLE_EQ(c->bottom_diel_thickness, 0.01);
    EXPECT_DOUBLE_EQ(c->base, -1.0);
    EXPECT_DOUBLE_EQ(c->scale, 1.0);

    // The plain table goes to both lists, the resistive one to the resistive list only.
    ASSERT_EQ(c->cap_etch.size(), 1u);
    ASSERT_EQ(c->res_etch.size(), 2u);
    double out = 0;
    ASSERT_EQ(c->cap_etch[0]->evalEtch(0.5, 0.2, out), 1);
    EXPECT_DOUBLE_EQ(out, 0.03);
    ASSERT_EQ(c->res_etch[1]->evalEtch(1, 1, out), 1);
    EXPECT_DOUBLE_EQ(out, -0.01);
    ASSERT_EQ(c->cap_mask_etch.size(), 1u);
    ASSERT_EQ(c->res_mask_etch.size(), 1u);
    EXPECT_EQ(c->cap_mask_etch[0]->nmask, 2);
    ASSERT_EQ(c->cap_mask_etch[0]->evalEtch(1, 1, 2, 1, out), 1);
    EXPECT_DOUBLE_EQ(out, 0.07);

    ASSERT_NE(c->side_tan_model, nullptr);
    ASSERT_NE(c->cap_thickness_ws, nullptr);
    EXPECT_EQ(c->res_thickness_ws, nullptr);
    ASSERT_NE(c->cap_thickness_density, nullptr);
    ASSERT_NE(c->res_thickness_density, nullptr);
    EXPECT_NE(c->cap_thickness_density, c->res_thickness_density);
    // Density 0.5 lies half way between the rows: factor 1 + 0.
    EXPECT_NEAR(c->cap_thickness_density->getThicknessByDensity(0.5), 1.0, 1e-12);
    EXPECT_EQ(c->cap_bottom_thickness, nullptr);
    ASSERT_NE(c->res_bottom_thickness, nullptr);
    ASSERT_NE(c->thickness_density_width, nullptr);
    ASSERT_NE(c->ild_model, nullptr);
    EXPECT_EQ(c->ild_model->dielectric, "IMD1");
    EXPECT_EQ(c->thickness_polynomial, nullptr);

    // The density boxes end up in the capacitive density model too.
    const std::vector<std::pair<double, double>> boxes = {{10, 0.5}, {20, 0.5}};
    EXPECT_EQ(c->density_box_weights, boxes);
    EXPECT_EQ(c->cap_thickness_density->boxes, boxes);

    ASSERT_EQ(c->gate_diff_caps.size(), 1u);
    EXPECT_EQ(c->gate_diff_names, std::vector<std::string>{"PO"});
    EXPECT_DOUBLE_EQ(c->gate_diff_caps[0]->values[0], 0.3);

    // rho from the table's first value; the table is kept for resistance extraction.
    EXPECT_DOUBLE_EQ(c->rho, 0.4);
    ASSERT_NE(c->rho_ws, nullptr);
    EXPECT_EQ(c->needs_res_modeling, 1);
    EXPECT_EQ(c->needs_cap_modeling, 0);
    EXPECT_EQ(c.s.ci.stream.token(), "}");
}

TEST(CtfConductor, ValueRulesReportAtTheAttribute) {
    const char* cases[][3] = {
        {"smin", "0", "invalid value"},
        {"wmin", "-1", "invalid value"},
        {"thickness", "0", "invalid value"},
        {"rho", "0", "invalid rho value"},
        {"gate2contact_smin", "0", "invalid gate2contact_smin value"},
        {"raiseddiffu_thickness", "0",
         "the value of raiseddiffu_thickness must be larger than zero"},
        {"raiseddiffu2gate_smin", "-0.1",
         "the value of raiseddiffu2gate_smin must be larger than zero"},
        {"raiseddiffu_etch", "-0.001", "the value of raiseddiffu_etch can not be negative"},
        {"raiseddiffu_gateside_conformal_er", "0",
         "the value of raiseddiffu_gateside_conformal_er must be larger than zero"},
        {"bottom_diel_er", "0", "invalid bottom_diel_er value"},
        {"bottom_diel_thickness", "0", "invalid bottom_diel_thickness value"},
    };
    for (const auto& c : cases) {
        const std::string text = "conductor M {\n  " + std::string(c[0]) + " " + c[1] + " }";
        EXPECT_EQ(errorOf(text), errorAt(text, c[0], 1, c[2]));
    }
    EXPECT_STATEMENT_ERROR("conductor { thickness 1 }", "conductor", 1, "expecting conductor name");
    EXPECT_STATEMENT_ERROR(metal(" gate_diffusion_layer_pair { (a b) }\n"),
                           "gate_diffusion_layer_pair", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR(metal(" ( 1 2 )\n"), "(", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR(
        metal(" spacer_er_from_gate_ws { widths { 1 } spacings { 1 } values { 1 } }\n"),
        "spacer_er_from_gate_ws", 1, "unknow field in the table");
    EXPECT_STATEMENT_ERROR("conductor M { thickness 1", "1", 1, "cannot find the end of the table");

    // A zero raiseddiffu_etch is allowed but sets nothing.
    Layer z(
        metal(" layer_type DIFFUSION raiseddiffu_etch 0 raiseddiffu_thickness 0.1\n"
              " raiseddiffu2gate_smin 0.1\n"));
    ASSERT_NE(z->raised_diff, nullptr);
    EXPECT_EQ(z->raised_diff->etch_flag, 0);
    EXPECT_DOUBLE_EQ(z->raised_diff->etch, 0.0);
}

TEST(CtfConductor, UnsupportedFieldsWarnAndAreDropped) {
    const std::string text =
        "conductor M1 {\n"
        " thickness 0.5 rho 0.02\n"
        " er 3\n"
        " top M2\n"
        " device_type { nmos }\n"
        " widths { 1 2 }\n"
        " er_table { (a 1) }\n"
        " gate2diffusion_adjust { x { } }\n"
        " is_gate\n"
        " csub_vs_spacing { (1 2) }\n"
        " crt1 5\n"
        " layer_type  GATE\n"
        "}";
    auto line = [](const char* word, int l, int pos) {
        return "[WARNING] CTF file: unsupported field \"" + std::string(word) +
               "\" in the table, line: " + std::to_string(l) + ", pos: " + std::to_string(pos) +
               ".\n";
    };
    EXPECT_EQ(warningsOf(text), line("er", 3, 1) + line("top", 4, 1) + line("device_type", 5, 1) +
                                    line("widths", 6, 1) + line("er_table", 7, 1) +
                                    line("gate2diffusion_adjust", 8, 1) + line("is_gate", 9, 1) +
                                    line("csub_vs_spacing", 10, 1));

    // An unknown layer type is kept, with a warning at its value.
    Statement s(metal(" layer_type  SPECIAL\n"));
    testing::internal::CaptureStdout();
    auto* c = s.read<CtfConductor>();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[WARNING] CTF file: unsupported conductor layer type: \"SPECIAL\", line: 4, pos: "
              "13.\n");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->conductor.layer_type, "SPECIAL");
    EXPECT_EQ(c->conductor.layer_type_code, 0);

    for (const char* known : {"FIELD_POLY", "BUMP", "TRENCH_CONTACT", "TALL_CONTACT", "CAPACITOR",
                              "RESISTOR", "ROUTING_VIA"})
        EXPECT_EQ(warningsOf(metal(" layer_type " + std::string(known) + "\n")), "") << known;
    Layer gate(metal(" layer_type GATE\n"));
    EXPECT_EQ(gate->layer_type_code, 1);
    Layer poly(metal(" layer_type FIELD_POLY\n"));
    EXPECT_EQ(poly->layer_type_code, 3);
}

TEST(CtfConductor, ConstantWidthVariations) {
    // Too small to matter: nothing at all is recorded.
    Layer tiny(metal(" width_var 0.000000001\n"));
    EXPECT_TRUE(tiny->cap_etch.empty());
    EXPECT_TRUE(tiny->res_etch.empty());
    EXPECT_EQ(tiny->needs_res_modeling, 0);

    // Two in a row add up in one constant model per list.
    Layer sum(metal(" width_var 0.01\n width_var 0.02\n"));
    for (const auto* list : {&sum->cap_etch, &sum->res_etch}) {
        ASSERT_EQ(list->size(), 1u);
        EXPECT_EQ((*list)[0]->is_constant, 1);
        EXPECT_NEAR((*list)[0]->constant, 0.03, 1e-15);
    }
    EXPECT_EQ(sum->needs_res_modeling, 1);

    Layer cap(metal(" capaci_only_width_var -0.01\n"));
    ASSERT_EQ(cap->cap_etch.size(), 1u);
    EXPECT_DOUBLE_EQ(cap->cap_etch[0]->constant, -0.01);
    EXPECT_TRUE(cap->res_etch.empty());
    EXPECT_EQ(cap->needs_res_modeling, 0);

    Layer res(metal(" resistive_only_width_var 0.004\n"));
    EXPECT_TRUE(res->cap_etch.empty());
    ASSERT_EQ(res->res_etch.size(), 1u);
    EXPECT_EQ(res->needs_res_modeling, 1);

    // Behind a table a new constant starts, and the later one adds to it.
    Layer mixed(metal(" width_var 0.01\n" + std::string(kEtchTable) +
                      " width_var 0.02\n capaci_only_width_var 0.03\n"));
    ASSERT_EQ(mixed->cap_etch.size(), 3u);
    EXPECT_DOUBLE_EQ(mixed->cap_etch[0]->constant, 0.01);
    EXPECT_EQ(mixed->cap_etch[1]->is_constant, 0);
    EXPECT_NEAR(mixed->cap_etch[2]->constant, 0.05, 1e-15);
    ASSERT_EQ(mixed->res_etch.size(), 3u);
    EXPECT_NEAR(mixed->res_etch[2]->constant, 0.02, 1e-15);
}

TEST(CtfConductor, TableSelectionByUse) {
    Layer cap(
        metal(" width_var_from_ws capacitive_only { widths { 1 } spacings { 1 }"
              " values { 0.01 } }\n"));
    EXPECT_EQ(cap->cap_etch.size(), 1u);
    EXPECT_TRUE(cap->res_etch.empty());
    EXPECT_EQ(cap->needs_res_modeling, 0);

    // A flag inside the table selects as well.
    Layer res(
        metal(" width_var_from_ws { resistive_only widths { 1 } spacings { 1 }"
              " values { 0.01 } }\n"));
    EXPECT_TRUE(res->cap_etch.empty());
    EXPECT_EQ(res->res_etch.size(), 1u);
    EXPECT_EQ(res->needs_res_modeling, 1);

    Layer two(metal(std::string(kEtchTable) + kEtchTable));
    EXPECT_EQ(two->cap_etch.size(), 2u);
    EXPECT_EQ(two->res_etch.size(), 2u);

    Layer d(
        metal(" thickness_var_from_d capacitive_only { (0.1 0.1) }\n"
              " thickness_var_from_d resistive_only { (0.1 0.2) }\n"
              " bottom_thickness_var_from_si_width { (0.1 0.01) }\n"
              " thickness_var_from_ws resistive_only { widths { 1 } spacings { 1 }"
              " values { 0.1 } }\n"));
    ASSERT_NE(d->cap_thickness_density, nullptr);
    ASSERT_NE(d->res_thickness_density, nullptr);
    EXPECT_DOUBLE_EQ(d->res_thickness_density->getThicknessByDensity(0.1), 1.2);
    EXPECT_NE(d->cap_bottom_thickness, nullptr);
    EXPECT_NE(d->res_bottom_thickness, nullptr);
    EXPECT_EQ(d->cap_thickness_ws, nullptr);
    EXPECT_NE(d->res_thickness_ws, nullptr);
    EXPECT_EQ(d->needs_res_modeling, 1);

    Layer capd(metal(" thickness_var_from_d capacitive_only { (0.1 0.1) }\n"));
    EXPECT_EQ(capd->needs_res_modeling, 0);
}

TEST(CtfConductor, TableExclusionsReportAtTheSecondTable) {
    const std::string ws =
        " thickness_var_from_ws { widths { 1 } spacings { 1 } values { 0.1 } }\n";
    const std::string ws_cap =
        " thickness_var_from_ws capacitive_only { widths { 1 } spacings { 1 } values { 0.1 } }\n";
    const std::string ws_res =
        " thickness_var_from_ws resistive_only { widths { 1 } spacings { 1 } values { 0.1 } }\n";
    const std::string d = " thickness_var_from_d { (0.1 0.1) }\n";
    const std::string d_cap = " thickness_var_from_d capacitive_only { (0.1 0.1) }\n";
    const std::string d_res = " thickness_var_from_d resistive_only { (0.1 0.1) }\n";
    const std::string b = " bottom_thickness_var_from_si_width { (0.1 0.1) }\n";
    const std::string b_cap = " bottom_thickness_var_from_si_width capacitive_only { (0.1 0.1) }\n";
    const std::string b_res = " bottom_thickness_var_from_si_width resistive_only { (0.1 0.1) }\n";
    const std::string dw =
        " thickness_vs_density_and_width { widths { 1 } densities { 1 } values { 0.1 } }\n";
    const std::string poly =
        " thickness_var_from_polynomial { density_polynomial_orders { 0 1 }\n"
        "   width_polynomial_orders { 0 } polynomial_coefficients { 0.01 0.02 } }\n";
    const std::string side =
        " side_tan_vs_si_width_and_spacing { widths { 1 } spacings { 1 } values { 0.1 } }\n";
    const std::string g2d =
        " gate2diffusion_cap { num_tables 1 A { gate_w { 1 } gate2contact_spacings { 1 }"
        " caps_per_micron { 1 } } }\n";
    const std::string ild =
        " ild_thickness_var_from_effective_ws { dielectric D widths { 1 } spacings { 1 }"
        " thickness_changes { 0.1 } }\n";
    const std::string box = " densitybox_weight_factor { (10 1) }\n";

    struct Case {
        std::string body;
        const char* word;
        int nth;
        const char* message;
    };
    const std::vector<Case> cases = {
        {side + side, "side_tan_vs_si_width_and_spacing", 2,
         "only one side_tan_vs_si_width_and_spacing modeling is allowed in one layer"},
        {g2d + g2d, "gate2diffusion_cap", 2,
         "multiple gate2diffusion_cap tables are specified in one layer"},
        {poly + poly, "thickness_var_from_polynomial", 2,
         "only one thickness_var_from_polynomial modeling is allowed in one layer"},
        {dw + poly, "thickness_var_from_polynomial", 1,
         "thickness_var_from_polynomial modeling is not allowed when other thickness modelings "
         "are already existed in the same layer"},
        {b_res + poly, "thickness_var_from_polynomial", 1,
         "thickness_var_from_polynomial modeling is not allowed when other thickness modelings "
         "are already existed in the same layer"},
        {poly + d_cap, "thickness_var_from_d", 1,
         "additional thickness modeling is not allowed when thickness_var_from_polynomial is "
         "already existed in the same layer"},
        {poly + ws, "thickness_var_from_ws", 1,
         "additional thickness modeling is not allowed when thickness_var_from_polynomial is "
         "already existed in the same layer"},
        {ws_cap + ws_cap, "thickness_var_from_ws", 2,
         "only one capacitive_only thickness_var_from_ws modeling is allowed in one layer"},
        {ws_res + ws_res, "thickness_var_from_ws", 2,
         "only one resistive_only thickness_var_from_ws modeling is allowed in one layer"},
        {ws_res + ws, "thickness_var_from_ws", 2,
         "only one resistive_only thickness_var_from_ws modeling is allowed in one layer"},
        {d_cap + d_cap, "thickness_var_from_d", 2,
         "only one capacitive_only thickness_var_from_d modeling is allowed in one layer"},
        {d_res + d_res, "thickness_var_from_d", 2,
         "only one resistive_only thickness_var_from_d modeling is allowed in one layer"},
        {d_res + d, "thickness_var_from_d", 2,
         "only one thickness_var_from_d modeling is allowed in one layer"},
        {b_cap + b_cap, "bottom_thickness_var_from_si_width", 2,
         "only one capacitive_only bottom_thickness_var_from_si_width modeling is allowed in "
         "one layer"},
        {b + b_res, "bottom_thickness_var_from_si_width", 2,
         "only one resistive_only bottom_thickness_var_from_si_width modeling is allowed in one "
         "layer"},
        {b_cap + b, "bottom_thickness_var_from_si_width", 2,
         "only one bottom_thickness_var_from_si_width modeling is allowed in one layer"},
        {dw + dw, "thickness_vs_density_and_width", 2,
         "only one thickness_vs_density_and_width modeling is allowed in one layer"},
        {ild + ild, "ild_thickness_var_from_effective_ws", 2,
         "only one ild_thickness_var_from_effective_ws table is allowed in one layer"},
        {box + box, "densitybox_weight_factor", 2,
         "only one densitybox_weight_factor table is allowed in one layer"},
        {" rho_vs_width_and_spacing { widths { 1 } spacings { 1 } values { 1 } }\n"
         " rpsq_vs_si_width { (1 1) }\n",
         "rpsq_vs_si_width", 1, "only one resistance model is allowed in one layer"},
        {" rpsq_vs_width_and_spacing { widths { 1 } values { 1 } }\n"
         " rho_vs_si_width_and_thickness { width { 1 } thickness { 1 } values { 1 } }\n",
         "rho_vs_si_width_and_thickness", 1, "only one resistance model is allowed in one layer"},
    };
    for (const Case& c : cases) {
        const std::string text = metal(c.body);
        EXPECT_EQ(errorOf(text), errorAt(text, c.word, c.nth, c.message)) << text;
    }

    // The capacitive and resistive slots of one kind fill independently.
    Layer both(metal(ws_cap + ws_res + d_cap + d_res + b_cap + b_res));
    EXPECT_NE(both->cap_thickness_ws, nullptr);
    EXPECT_NE(both->res_thickness_ws, nullptr);
}

// A 2 x 3 sheet-resistance table: rows are widths, the spacing runs fastest.
const char* const kRpsqTable =
    " rpsq_vs_width_and_spacing { widths { 1 2 } spacings { 1 2 3 } values { 2 4 6 8 10 12 } }\n";

TEST(CtfConductor, ResistanceFromRhoOrTables) {
    SwitchScope switches;
    Layer plain(metal(""));
    EXPECT_DOUBLE_EQ(plain->rho, 0.02);
    EXPECT_EQ(plain->needs_res_modeling, 0);

    // rho = sheet resistance sample times thickness (0.5); the first value by default.
    Layer first(metal(kRpsqTable, false));
    EXPECT_DOUBLE_EQ(first->rho, 2 * 0.5);
    ASSERT_NE(first->rpsq_ws, nullptr);
    EXPECT_EQ(first->needs_res_modeling, 1);

    switches.set("TESSAL_DFM_TABLE_SAMPLING_MODE", "1");  // mean of all six
    Layer mean(metal(kRpsqTable, false));
    EXPECT_DOUBLE_EQ(mean->rho, 7 * 0.5);

    // Any other mode: the mean of the leading half block, 1 row (of 2) by 2 columns (of 3).
    switches.set("TESSAL_DFM_TABLE_SAMPLING_MODE", "2");
    Layer block(metal(kRpsqTable, false));
    EXPECT_DOUBLE_EQ(block->rho, (2 + 4) / 2.0 * 0.5);

    // 3 x 3 rho table, leading block 2 x 2: values 1 2 4 5.
    Layer rho_block(
        metal(" rho_vs_width_and_spacing { widths { 1 2 3 } spacings { 1 2 3 }\n"
              "   values { 1 2 3 4 5 6 7 8 9 } }\n",
              false));
    EXPECT_DOUBLE_EQ(rho_block->rho, 3.0);

    // Tuples (width, rpsq): the first two of three.
    Layer si(metal(" rpsq_vs_si_width { (1 10) (2 20) (3 60) }\n", false));
    EXPECT_DOUBLE_EQ(si->rho, 15 * 0.5);
    ASSERT_NE(si->rpsq_si, nullptr);

    switches.set("TESSAL_DFM_TABLE_SAMPLING_MODE", "1");
    Layer rho_si(
        metal(" rho_vs_si_width_and_thickness { width { 1 2 } thickness { 1 }\n"
              "   values { 0.03 0.05 } }\n",
              false));
    EXPECT_DOUBLE_EQ(rho_si->rho, 0.04);
    ASSERT_NE(rho_si->rho_si, nullptr);

    // With sampling on, the table only yields rho and no model is kept.
    switches.set("TESSAL_DFM_TABLE_SAMPLING", "1");
    switches.set("TESSAL_DFM_TABLE_SAMPLING_MODE", "0");
    Layer sampled(metal(kRpsqTable, false));
    EXPECT_DOUBLE_EQ(sampled->rho, 1.0);
    EXPECT_EQ(sampled->rpsq_ws, nullptr);
    EXPECT_EQ(sampled->needs_res_modeling, 0);
}

TEST(CtfConductor, RhoOverridesResistanceTables) {
    SwitchScope switches;
    const std::string text = metal(kRpsqTable);
    EXPECT_EQ(warningsOf(text),
              "[WARNING] CTF file: rho value will override all the resistance modeling for the "
              "conductor layer \"M1\".\n");
    Layer c(text);
    EXPECT_DOUBLE_EQ(c->rho, 0.02);
    EXPECT_EQ(c->rpsq_ws, nullptr);
    EXPECT_EQ(c->needs_res_modeling, 0);
}

TEST(CtfConductor, EndOfStatementErrorsAtTheKeyword) {
    auto atKeyword = [](const std::string& text, const char* message) {
        EXPECT_EQ(errorOf(text), errorAt(text, "conductor", 1, message)) << text;
    };
    atKeyword("\n conductor M1 { rho 1 }", "no thickness value is specified for the layer");
    atKeyword("conductor M1 { thickness 1 }", "no resistance is specified for the layer");
    atKeyword(metal(" layer_type DIFFUSION raiseddiffu_thickness 0.1\n"),
              "must specify both the raiseddiffu_thickness and raiseddiffu2gate_smin for the "
              "conductor layer");
    atKeyword(metal(" layer_type DIFFUSION raiseddiffu_etch 0.1 raiseddiffu2gate_smin 0.1\n"),
              "must specify both the raiseddiffu_thickness and raiseddiffu2gate_smin for the "
              "conductor layer");
    atKeyword(metal(" layer_type GATE raiseddiffu_thickness 0.1 raiseddiffu2gate_smin 0.1\n"),
              "the raiseddiffu_thickness field can only be applied to the conductors with "
              "layer_type being set as DIFFUSION");
    atKeyword(metal(" bottom_diel_er 3\n"),
              "must specify both bottom_diel_er and bottom_diel_thickness to model bottom "
              "dielectric");
    atKeyword(metal(" bottom_diel_thickness 0.1\n"),
              "must specify both bottom_diel_er and bottom_diel_thickness to model bottom "
              "dielectric");
}

// A polynomial thickness table with the given extra fields, and thickness bounds 0.3 to 0.6.
std::string polynomial(const std::string& extra) {
    return " thickness_var_from_polynomial { density_polynomial_orders { 0 1 }\n"
           "   width_polynomial_orders { 0 } polynomial_coefficients { 0.01 0.02 }\n"
           "   thickness_bounds { 0.3 0.6 }\n" +
           extra + " }\n";
}

TEST(CtfConductor, PolynomialBoundsFromTheEtchAndILDTables) {
    // The width and spacing ends over the capacitive tables; the resistive one and the constant
    // do not count.
    const std::string etch =
        std::string(kEtchTable) +
        " width_var_from_ws capacitive_only { widths { 0.05 0.3 } spacings { 0.3 2.0 }\n"
        "   values { 0 0 0 0 } }\n"
        " width_var_from_ws resistive_only { widths { 0.01 9 } spacings { 0.01 9 }\n"
        "   values { 0 0 0 0 } }\n"
        " width_var 0.01\n";
    Layer c(metal(etch + polynomial("")));
    ASSERT_NE(c->thickness_polynomial, nullptr);
    EXPECT_EQ(c->width_bounds, (std::vector<double>{0.05, 0.5}));
    EXPECT_EQ(c->spacing_bounds, (std::vector<double>{0.2, 2.0}));
    const ThicknessPolynomialModel& p = *c->thickness_polynomial;
    EXPECT_EQ(p.has_width_range, 1);
    EXPECT_DOUBLE_EQ(p.width_low, 0.05);
    EXPECT_DOUBLE_EQ(p.width_high, 0.5);
    EXPECT_EQ(p.has_spacing_range, 1);
    EXPECT_DOUBLE_EQ(p.spacing_low, 0.2);
    EXPECT_DOUBLE_EQ(p.spacing_high, 2.0);
    EXPECT_EQ(c->needs_res_modeling, 1);

    // The ILD table widens the range where it reaches further.
    Layer w(metal(std::string(kEtchTable) + polynomial("") +
                  " ild_thickness_var_from_effective_ws { dielectric D widths { 0.02 0.4 }\n"
                  "   spacings { 0.25 3 } thickness_changes { 0 0 0 0 } }\n"));
    EXPECT_EQ(w->width_bounds, (std::vector<double>{0.02, 0.5}));
    EXPECT_EQ(w->spacing_bounds, (std::vector<double>{0.2, 3.0}));

    // The density boxes reach the polynomial model as well.
    Layer boxes(metal(polynomial("") + " densitybox_weight_factor { (5 2) }\n"));
    EXPECT_EQ(boxes->thickness_polynomial->boxes, (std::vector<std::pair<double, double>>{{5, 2}}));
}

TEST(CtfConductor, PolynomialWidthRangeWithoutTables) {
    const std::string warning =
        "[WARNING] CTF file: thickness_var_from_polynomial modeling for the conductor layer "
        "\"M1\" does not contain density_bounds_vs_width table.\n";

    // From the density bounds table: its first and last width; no warning.
    const std::string bounds =
        metal(polynomial("   density_bounds_vs_width { (0.1 0.2 0.8) (1.0 0.1 0.9) }\n"));
    EXPECT_EQ(warningsOf(bounds), "");
    Layer b(bounds);
    EXPECT_EQ(b->width_bounds, (std::vector<double>{-1, -1}));
    EXPECT_EQ(b->spacing_bounds, (std::vector<double>{-1, -1}));
    EXPECT_DOUBLE_EQ(b->thickness_polynomial->width_low, 0.1);
    EXPECT_DOUBLE_EQ(b->thickness_polynomial->width_high, 1.0);
    EXPECT_EQ(b->thickness_polynomial->has_spacing_range, 0);

    // From wmin (0.1), lowered to the first break point, up to the last break point.
    const std::string ranges =
        " thickness_var_from_polynomial { density_polynomial_orders { 0 }\n"
        "   width_polynomial_orders { 0 } width_ranges { 0.05 0.5 }\n"
        "   polynomial_coefficients { 0.01 } polynomial_coefficients { 0.02 }\n"
        "   polynomial_coefficients { 0.03 } }\n";
    EXPECT_EQ(warningsOf(metal(ranges)), warning);
    Layer r(metal(ranges));
    EXPECT_DOUBLE_EQ(r->thickness_polynomial->width_low, 0.05);
    EXPECT_DOUBLE_EQ(r->thickness_polynomial->width_high, 0.5);

    // No break points: wmin up to a hundred times wmin.
    Layer m(metal(" wmin 0.2\n" + polynomial("")));
    EXPECT_DOUBLE_EQ(m->thickness_polynomial->width_low, 0.2);
    EXPECT_DOUBLE_EQ(m->thickness_polynomial->width_high, 20.0);
}

TEST(CtfConductor, PolynomialThicknessBoundsMustEncloseTheThickness) {
    auto withThickness = [](const char* t) {
        return "conductor M1 {\n thickness " + std::string(t) + " rho 1\n" + polynomial("") + "}";
    };
    const std::string low = withThickness("0.2");
    EXPECT_EQ(errorOf(low),
              errorAt(low, "conductor", 1,
                      "lower value of thickness_bounds of thickness_var_from_polynomial model "
                      "must be smaller than the original conductor thickness"));
    const std::string high = withThickness("0.7");
    EXPECT_EQ(errorOf(high),
              errorAt(high, "conductor", 1,
                      "upper value of thickness_bounds of thickness_var_from_polynomial model "
                      "must be larger than the original conductor thickness"));
    for (const char* ok : {"0.3", "0.45", "0.6"}) {
        Statement s(withThickness(ok));
        EXPECT_EQ(s.error(), "no error") << ok;
    }
}

TEST(CtfConductor, StatementStartsFromScratch) {
    // One processor serves every conductor statement: nothing of the first survives.
    Statement s(metal(std::string(kEtchTable) + " layer_type GATE width_var 0.01\n") +
                " conductor M2 { thickness 0.3 rho 0.01 }");
    s.read<CtfConductor>();
    s.ci.stream.next();
    auto* c = s.read<CtfConductor>();
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->conductor.name, "M2");
    EXPECT_TRUE(c->conductor.cap_etch.empty());
    EXPECT_EQ(c->conductor.layer_type_code, 0);
    EXPECT_EQ(c->conductor.needs_res_modeling, 0);
}

// Every model slot of a conductor filled, for the ownership tests.
const std::string kAllModels =
    metal(std::string(kEtchTable) + " width_var 0.01\n" +
              " width_var_from_ws { nmask 2 mask (1 1) (1 2) (2 1) (2 2) {\n"
              "   widths { 1 } spacings { 1 } values { 0.07 } } }\n"
              " side_tan_vs_si_width_and_spacing { widths { 1 } spacings { 1 } values { 0.2 } }\n"
              " thickness_var_from_ws { widths { 1 } spacings { 1 } values { 0.1 } }\n"
              " thickness_var_from_d { (0.2 -0.1) }\n"
              " bottom_thickness_var_from_si_width { (0.1 0.01) }\n"
              " thickness_vs_density_and_width { widths { 1 } densities { 0.5 } values { 0.03 } }\n"
              " ild_thickness_var_from_effective_ws { dielectric D widths { 1 } spacings { 1 }\n"
              "   thickness_changes { 0.01 } }\n"
              " gate2diffusion_cap { num_tables 2 A { gate_w { 1 } gate2contact_spacings { 1 }\n"
              "   caps_per_micron { 0.3 } } B { gate_w { 1 } gate2contact_spacings { 1 }\n"
              "   caps_per_micron { 0.4 } } }\n"
              " layer_type DIFFUSION raiseddiffu_thickness 0.1 raiseddiffu2gate_smin 0.1\n"
              " rpsq_vs_si_width { (1 10) }\n",
          false);

TEST(ConductorRecord, CopiesOwnTheirModels) {
    Layer source(kAllModels);
    ASSERT_NE(source.p, nullptr);
    Conductor copy = *source;
    ASSERT_EQ(copy.cap_etch.size(), 2u);
    EXPECT_NE(copy.cap_etch[0], source->cap_etch[0]);
    EXPECT_NE(copy.cap_mask_etch[0], source->cap_mask_etch[0]);
    EXPECT_NE(copy.ild_model, source->ild_model);
    EXPECT_NE(copy.raised_diff, source->raised_diff);
    EXPECT_NE(copy.rpsq_si, source->rpsq_si);
    EXPECT_NE(copy.gate_diff_caps[1], source->gate_diff_caps[1]);
    // A change to the copy's model leaves the original alone.
    copy.cap_etch[0]->values[0] = 99;
    copy.gate_diff_caps[1]->values[0] = 99;
    EXPECT_DOUBLE_EQ(source->cap_etch[0]->values[0], 0.01);
    EXPECT_DOUBLE_EQ(source->gate_diff_caps[1]->values[0], 0.4);
    EXPECT_EQ(copy.ild_model->dielectric, "D");
    double out = 0;
    ASSERT_EQ(copy.cap_mask_etch[0]->evalEtch(1, 1, 1, 2, out), 1);
    EXPECT_DOUBLE_EQ(out, 0.07);

    // Many copies, assignments, moves and destructions: the sanitizer build checks that every
    // model is freed exactly once.
    std::vector<Conductor> many;
    for (int i = 0; i < 50; ++i) many.push_back(copy);
    for (int i = 0; i < 50; i += 2) many[i] = *source;
    Conductor moved = std::move(many.back());
    many.pop_back();
    EXPECT_EQ(moved.cap_etch.size(), 2u);
    many.erase(many.begin(), many.begin() + 10);
    many.front() = std::move(moved);
    EXPECT_TRUE(moved.cap_etch.empty());
    many.front() = many.front();  // self-assignment keeps the models
    EXPECT_EQ(many.front().cap_etch.size(), 2u);

    // Clearing deletes and empties; the processor's own record is reset by the next statement.
    copy.clearModels();
    EXPECT_TRUE(copy.cap_etch.empty());
    EXPECT_EQ(copy.raised_diff, nullptr);
    copy.initConductor();
    EXPECT_DOUBLE_EQ(copy.thickness, -1.0);
    EXPECT_DOUBLE_EQ(copy.wmin, 0.1);
}

}  // namespace
