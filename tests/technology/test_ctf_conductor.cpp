// The conductor statement: a full layer read into its record, every value rule and table
// exclusion with the word it reports, constant width variations, resistance sampling, the
// end-of-statement derivations, and ownership of the models by the record.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tech_test_util.h"
#include "technology/ctf_conductor.h"

namespace {

using namespace tech_test;

// A conductor statement named M1 with thickness 0.5 and rho 0.02 unless the body says otherwise.
std::string metal(const std::string& body, bool with_rho = true) {
    return "conductor M1 {\n thickness 0.5\n" + std::string(with_rho ? " rho 0.02\n" : "") + body +
           "}";
}

// The record read from `text` as one conductor; fails the test when it does not read.
Conductor layer(const std::string& text) {
    Reader r(text);
    try {
        if (auto* p = r.read<CtfConductor>()) return p->conductor;
        ADD_FAILURE() << "not a conductor: " << text;
    } catch (const Ctf_Error& e) {
        ADD_FAILURE() << e.text;
    }
    return {};
}

const char* const kEtchTable =
    " width_var_from_ws { widths { 0.1 0.5 } spacings { 0.2 1.0 }\n"
    "   values { 0.01 0.02 0.03 0.04 } }\n";

TEST(CtfConductor, FullStatementFillsTheRecordThatOwnsItsModels) {
    const Conductor c = layer(
        "conductor OD { thickness 0.08 wmin 0.05 smin 0.06 side_tan 0.1 gate2contact_smin 0.03\n"
        " layer_type DIFFUSION raiseddiffu_thickness 0.04 raiseddiffu2gate_smin 0.02\n"
        " raiseddiffu_etch 0.005 raiseddiffu_gateside_conformal_er 7 crt1 1 crt2 2 t_zero 25\n"
        " bottom_diel_er 3.9 bottom_diel_thickness 0.01\n" +
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
        " rho_vs_width_and_spacing { widths { 1 2 } spacings { 1 } values { 0.4 0.6 } }\n"
        "}");
    ASSERT_TRUE(c.raised_diff && c.cap_etch.size() == 1 && c.res_etch.size() == 2 &&
                c.cap_mask_etch.size() == 1 && c.res_mask_etch.size() == 1 &&
                c.cap_thickness_density && c.res_thickness_density && c.ild_model);
    // Every value differs, so a keyword stored in another field shows. The plain etch table goes
    // to both lists, the resistive one to the resistive list only; rho comes from the table's
    // first value, and density 0.5 lies half way between the rows: factor 1 + 0.
    const RaisedDiffModel& rd = *c.raised_diff;
    double a = 0, b = 0, m = 0;
    ASSERT_EQ(c.cap_etch[0]->evalEtch(0.5, 0.2, a) + c.res_etch[1]->evalEtch(1, 1, b) +
                  c.cap_mask_etch[0]->evalEtch(1, 1, 2, 1, m),
              3);
    EXPECT_TRUE(near({c.thickness, c.wmin, c.smin, c.side_tan, c.gate2contact_smin,
                      c.bottom_diel_er, c.bottom_diel_thickness, rd.thickness, rd.smin, rd.etch,
                      rd.conformal_er, 1.0 * rd.etch_flag, 1.0 * c.layer_type_code, a, b, m, c.rho,
                      c.res_thickness_density->getThicknessByDensity(0.5)},
                     {0.08, 0.05, 0.06, 0.1, 0.03, 3.9, 0.01, 0.04, 0.02, 0.005, 7, 1, 2, 0.03,
                      -0.01, 0.07, 0.4, 1}));
    // Which slots the thickness and other tables filled.
    EXPECT_EQ((std::vector<bool>{!!c.side_tan_model, !!c.cap_thickness_ws, !!c.res_thickness_ws,
                                 !!c.cap_bottom_thickness, !!c.res_bottom_thickness,
                                 !!c.thickness_density_width, !!c.thickness_polynomial, !!c.rho_ws,
                                 !!c.rpsq_ws, !!c.needs_res_modeling}),
              (std::vector<bool>{1, 1, 0, 0, 1, 1, 0, 1, 0, 1}));
    EXPECT_EQ(c.name + c.ild_model->dielectric, "ODIMD1");

    // The record owns deep copies of its models: a change to the copy leaves the original alone.
    Conductor copy = c;
    EXPECT_TRUE(copy.cap_mask_etch[0] != c.cap_mask_etch[0] && copy.ild_model != c.ild_model);
    copy.cap_etch[0]->values[0] = 99;
    EXPECT_DOUBLE_EQ(c.cap_etch[0]->values[0], 0.01);
}

TEST(CtfConductor, ValueAndFieldErrors) {
    auto zero = [](const char* field) { return "conductor M {\n  " + std::string(field) + " 0 }"; };
    expectErrors({
        {zero("smin"), "smin", 1, "invalid value"},
        {zero("rho"), "rho", 1, "invalid rho value"},
        {zero("gate2contact_smin"), "gate2contact_smin", 1, "invalid gate2contact_smin value"},
        {zero("raiseddiffu_thickness"), "raiseddiffu_thickness", 1,
         "the value of raiseddiffu_thickness must be larger than zero"},
        {zero("bottom_diel_er"), "bottom_diel_er", 1, "invalid bottom_diel_er value"},
        {"conductor { thickness 1 }", "conductor", 1, "expecting conductor name"},
        {metal(" gate_diffusion_layer_pair { (a b) }\n"), "gate_diffusion_layer_pair", 1,
         kUnknowClass},
        {metal(" spacer_er_from_gate_ws { widths { 1 } spacings { 1 } values { 1 } }"),
         "spacer_er_from_gate_ws", 1, kUnknowClass},
        {"conductor M { thickness 1", "1", 1, "cannot find the end of the table"},
    });

    // A zero raiseddiffu_etch is allowed but sets nothing.
    const Conductor z =
        layer(metal(" layer_type DIFFUSION raiseddiffu_etch 0 raiseddiffu_thickness 0.1 "
                    "raiseddiffu2gate_smin 0.1\n"));
    EXPECT_TRUE(z.raised_diff && z.raised_diff->etch_flag == 0);
}

TEST(CtfConductor, ConstantWidthVariations) {
    // Too small to matter: nothing at all is recorded.
    const Conductor tiny = layer(metal(" width_var 0.000000001\n"));
    EXPECT_TRUE(tiny.cap_etch.empty() && tiny.res_etch.empty() && !tiny.needs_res_modeling);

    // Behind a table a new constant starts, and later ones in a row add to it.
    const Conductor c = layer(metal(" width_var 0.01\n" + std::string(kEtchTable) +
                                    " width_var 0.02\n capaci_only_width_var 0.03\n"));
    ASSERT_TRUE(c.cap_etch.size() == 3 && c.res_etch.size() == 3);
    EXPECT_TRUE(near(
        {c.cap_etch[0]->constant, 1.0 * c.cap_etch[1]->is_constant, c.cap_etch[2]->constant,
         c.res_etch[2]->constant, 1.0 * c.res_etch[2]->is_constant, 1.0 * c.needs_res_modeling},
        {0.01, 0, 0.05, 0.02, 1, 1}, 1e-15));
}

// A polynomial thickness table with the given extra fields, and thickness bounds 0.3 to 0.6.
std::string polynomial(const std::string& extra) {
    return " thickness_var_from_polynomial { density_polynomial_orders { 0 1 }\n"
           "   width_polynomial_orders { 0 } polynomial_coefficients { 0.01 0.02 }\n"
           "   thickness_bounds { 0.3 0.6 }\n" +
           extra + " }\n";
}

TEST(CtfConductor, TableExclusionsReportAtTheSecondTable) {
    const std::string one = " { widths { 1 } spacings { 1 } values { 0.1 } }\n";
    auto ws = [&](const char* use) { return " thickness_var_from_ws " + std::string(use) + one; };
    auto b = [](const char* use) {
        return " bottom_thickness_var_from_si_width " + std::string(use) + " { (0.1 0.1) }\n";
    };
    const std::string dw =
        " thickness_vs_density_and_width { widths { 1 } densities { 1 } values { 0.1 } }\n";
    const std::string poly = polynomial(""), side = " side_tan_vs_si_width_and_spacing" + one;
    const std::string g2d =
        " gate2diffusion_cap { num_tables 1 A { gate_w { 1 } gate2contact_spacings { 1 }"
        " caps_per_micron { 1 } } }\n";
    const std::string box = " densitybox_weight_factor { (10 1) }\n";
    const char *cap = "capacitive_only", *res = "resistive_only";
    auto once = [](const std::string& what) { return "only one " + what + " modeling is allowed"; };
    // {body, word, nth, start of the message}
    const std::vector<std::tuple<std::string, std::string, int, std::string>> cases = {
        {side + side, "side_tan_vs_si_width_and_spacing", 2,
         once("side_tan_vs_si_width_and_spacing")},
        {g2d + g2d, "gate2diffusion_cap", 2, "multiple gate2diffusion_cap tables"},
        {poly + poly, "thickness_var_from_polynomial", 2, once("thickness_var_from_polynomial")},
        {dw + poly, "thickness_var_from_polynomial", 1,
         "thickness_var_from_polynomial modeling is not allowed when other"},
        {ws(cap) + ws(cap), "thickness_var_from_ws", 2,
         once("capacitive_only thickness_var_from_ws")},
        {b(cap) + b(cap), "bottom_thickness_var_from_si_width", 2,
         once("capacitive_only bottom_thickness_var_from_si_width")},
        {dw + dw, "thickness_vs_density_and_width", 2, once("thickness_vs_density_and_width")},
        {box + box, "densitybox_weight_factor", 2, "only one densitybox_weight_factor table"},
        {" rho_vs_width_and_spacing" + one + " rpsq_vs_si_width { (1 1) }\n", "rpsq_vs_si_width", 1,
         "only one resistance model"},
    };
    std::vector<ErrorCase> errors;
    for (const auto& [body, word, nth, message] : cases)
        errors.push_back({metal(body), word, nth, message});
    expectErrors(errors);
    // The capacitive and resistive slots of one kind fill independently.
    EXPECT_EQ(errorOf(metal(ws(cap) + ws(res) + b(cap) + b(res))), "no error");
}

// A 2 x 3 sheet-resistance table: rows are widths, the spacing runs fastest.
const char* const kRpsqTable =
    " rpsq_vs_width_and_spacing { widths { 1 2 } spacings { 1 2 3 } values { 2 4 6 8 10 12 } }\n";

TEST(CtfConductor, ResistanceFromRhoOrTables) {
    const std::string rho =
        " rho_vs_width_and_spacing { widths { 1 2 3 } spacings { 1 2 3 }"
        " values { 1 2 3 4 5 6 7 8 9 } }\n";
    const std::string rpsq_si = " rpsq_vs_si_width { (1 10) (2 20) (3 60) }\n";
    const std::string rho_si =
        " rho_vs_si_width_and_thickness { width { 1 2 } thickness { 1 } values { 0.03 0.05 } }\n";
    // {sampling, sampling mode, table (none: rho 0.02), rho, model kept}; from a sheet resistance
    // table, rho = the sample times the thickness 0.5.
    const std::tuple<const char*, const char*, std::string, double, bool> cases[] = {
        {"0", "0", "", 0.02, false},
        {"0", "0", kRpsqTable, 2 * 0.5, true},  // the first value by default
        {"0", "1", kRpsqTable, 7 * 0.5, true},  // mean of all six
        // Any other mode: the mean of the leading half block, 1 row (of 2) by 2 columns (of 3).
        {"0", "2", kRpsqTable, 3 * 0.5, true},
        {"0", "2", rho, 3.0, true},           // the leading 2 x 2 block: 1 2 4 5
        {"0", "2", rpsq_si, 15 * 0.5, true},  // tuples (width, rpsq): the first two of three
        {"0", "1", rho_si, 0.04, true},
        {"1", "0", kRpsqTable, 1.0, false},  // with sampling on, the table only yields rho
    };
    for (const auto& [sampling, mode, table, want, kept] : cases) {
        PARG::regArgument("TESSAL_DFM_TABLE_SAMPLING", sampling);
        PARG::regArgument("TESSAL_DFM_TABLE_SAMPLING_MODE", mode);
        const Conductor c = layer(metal(table, table.empty()));
        EXPECT_DOUBLE_EQ(c.rho, want) << mode << table;
        EXPECT_EQ(c.needs_res_modeling, kept) << mode << table;
        EXPECT_EQ(c.rpsq_ws || c.rho_ws || c.rpsq_si || c.rho_si, kept) << mode << table;
    }
    PARG::clear();  // switches set here must not reach another test
}

TEST(CtfConductor, EndOfStatementErrorsAtTheKeyword) {
    const char* raised = "must specify both the raiseddiffu_thickness and raiseddiffu2gate_smin";
    const char* bottom = "must specify both bottom_diel_er and bottom_diel_thickness";
    auto thick = [](const char* t) {
        return "conductor M1 {\n thickness " + std::string(t) + " rho 1\n" + polynomial("") + "}";
    };
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"\n conductor M1 { rho 1 }", "no thickness value is specified"},
        {"conductor M1 { thickness 1 }", "no resistance is specified"},
        {metal(" layer_type DIFFUSION raiseddiffu_thickness 0.1\n"), raised},
        {metal(" layer_type DIFFUSION raiseddiffu_etch 0.1 raiseddiffu2gate_smin 0.1\n"), raised},
        {metal(" layer_type GATE raiseddiffu_thickness 0.1 raiseddiffu2gate_smin 0.1\n"),
         "the raiseddiffu_thickness field can only be applied"},
        {metal(" bottom_diel_er 3\n"), bottom},
        {metal(" bottom_diel_thickness 0.1\n"), bottom},
        {thick("0.2"), "lower value of thickness_bounds"},
        {thick("0.7"), "upper value of thickness_bounds"},
    };
    std::vector<ErrorCase> errors;
    for (const auto& [text, message] : cases) errors.push_back({text, "conductor", 1, message});
    expectErrors(errors);
    // The thickness bounds enclose the thickness with their ends included.
    for (const char* ok : {"0.3", "0.6"}) EXPECT_EQ(errorOf(thick(ok)), "no error") << ok;
}

}  // namespace
