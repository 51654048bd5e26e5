// The process tables: one good input of each read into its model (row order checked with
// asymmetric values), the keyword rebindings, and every error text with the word it names.
#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "tech_test_util.h"
#include "technology/ctf_tables.h"

namespace {

using namespace tech_test;

// Rows are widths, the spacing runs fastest: row w=1 is 1 2 3, row w=2 is 10 20 30.
const std::string kBody = "{ widths { 1 2 } spacings { 10 20 30 } values { 1 2 3 10 20 30 } }";

TEST(CtfTables, WidthSpacingFamilyKeepsTheRowOrder) {
    for (const char* kw : {"thickness_var_from_ws", "side_tan_vs_si_width_and_spacing",
                           "spacer_er_from_gate_ws", "rho_vs_width_and_spacing", "mask (1 2)"}) {
        Reader r(std::string(kw) + " " + kBody);
        auto* t = r.read<CtfEtch_width_spacing_template>();
        ASSERT_NE(t, nullptr) << kw;
        double a = 0, b = 0;
        EXPECT_EQ(t->model.evalEtch(1, 20, a) + t->model.evalEtch(2, 10, b), 2) << kw;
        EXPECT_TRUE(near({a, b}, {2, 10})) << kw;
        EXPECT_EQ(r.ci.stream.token(), "}");
    }
    Reader sel("thickness_var_from_ws resistive_only " + kBody);
    EXPECT_EQ(sel.read<CtfThickness_width_spacing>()->use.resistive_only, 1);
    // Any order of the vectors; equal neighbours pass; only rho tables need positive values.
    EXPECT_EQ(errorOf("thickness_var_from_ws { values { 0 5 } spacings { 3 3 } widths { 1 } }"),
              "no error");

    Reader m("mask ( 1 2 ) ( 2.9 1 ) ( 1 2 ) { widths { 1 } spacings { 1 } values { 3 } }");
    EXPECT_EQ(m.read<CtfMaskEtchTable>()->pairs, (std::set<MaskPair>{{1, 2}, {2, 1}}));
}

const char* const kTwoMasks =
    "width_var_from_ws { nmask 2.7\n"
    "  mask (1 1) (2 2) { widths { 1 } spacings { 1 } values { 1 } }\n"
    "  mask (1 2) { widths { 1 } spacings { 1 5 } values { 2 2 } }\n"
    "  mask (2 1) { widths { 1 } spacings { 1 } values { 3 } }\n"
    "}";

TEST(CtfTables, WidthVarFromWsSingleAndMultiMask) {
    // Plain table first, then the usage flags in braces.
    Reader r("width_var_from_ws " + kBody + " width_var_from_ws { resistive_only etch_from_top " +
             kBody.substr(2));
    auto* t = r.read<CtfEtch_width_spacing>();
    ASSERT_NE(t, nullptr);
    EXPECT_FALSE(t->is_multi_mask || t->use.capacitive_only || t->use.resistive_only ||
                 t->use.etch_from_top);
    ASSERT_TRUE(r.ci.stream.next());
    t = r.read<CtfEtch_width_spacing>();
    EXPECT_EQ(t->use.resistive_only * 2 + t->use.etch_from_top * 4 + t->use.capacitive_only, 6);

    // Two masks: the defaults come from the cross-mask tables (1,2) and (2,1).
    Reader mm(std::string(kTwoMasks) + "\n" + kTwoMasks);
    t = mm.read<CtfEtch_width_spacing>();
    ASSERT_NE(t, nullptr);
    EXPECT_TRUE(t->is_multi_mask == 1 && t->mask_model.nmask == 2);
    EXPECT_DOUBLE_EQ(t->mask_model.max_feature, 5.0);
    std::unique_ptr<SyntheticEtchModel> kept(t->mask_model.clone());
    ASSERT_TRUE(mm.ci.stream.next());
    ASSERT_NE(mm.read<CtfEtch_width_spacing>(), nullptr);  // the processor reads again
    for (const SyntheticEtchModel* s : {kept.get(), &t->mask_model})
        for (const auto& [a, b, want] :
             {std::tuple{2, 2, 1.0}, {1, 2, 2.0}, {0, 0, 2.0}, {0, 1, 3.0}, {1, 0, 2.0}}) {
            double out = -999;
            EXPECT_TRUE(s->evalEtch(1, 1, a, b, out) == 1 && out == want) << a << b << " " << out;
        }
}

TEST(CtfTables, PolynomialTable) {
    Reader r(
        "thickness_var_from_polynomial {\n"
        "  si_density_polynomial_orders { 0 1 } width_polynomial_orders { 0 1 }\n"
        "  width_ranges { 1.0 }\n"
        "  polynomial_coefficients { 0.01 0.02 0.03 0.04 }\n"
        "  polynomial_coefficients { 0.1 0 0 0 }\n"
        "  thickness_bounds { 0.9 1.1 }\n"
        "  density_bounds_vs_width { (1 0.1 0.5) (3 0.3 0.7) }\n"
        "}");
    auto* t = r.read<CtfThickness_polynomial>();
    ASSERT_NE(t, nullptr);
    EXPECT_TRUE(t->valid && t->has_density_bounds && t->model.si_density && !t->model.si_width);
    EXPECT_EQ(t->model.bound_widths, (std::vector<double>{1, 3}));
    // Width 0.5 lies in the first range, 2 in the second; density 0.3 is inside its bounds.
    double lo = 0, hi = 0, narrow = 0, wide = 0;
    ASSERT_EQ(t->model.getThicknessBounds(lo, hi) + t->model.getThickness(0.3, 0.5, narrow, 0.0) +
                  t->model.getThickness(0.3, 2.0, wide, 0.0),
              3);
    EXPECT_TRUE(near({lo, hi, narrow, wide},
                     {0.9, 1.1, 0.01 + 0.02 * 0.5 + 0.3 * (0.03 + 0.04 * 0.5), 0.1}, 1e-15));
}

// Each message is matched by its start, long enough to tell it from its neighbours.
TEST(CtfTables, WidthVariationErrors) {
    const std::string ev = "width_var_from_ws", wl = "width_var_from_wl",
                      cg = "width_var_from_contact_gate_s";
    const std::string one = " { widths { 1 } spacings { 1 } values { 1 } } ";
    const std::string sub =
        " { contact2contact_spacings { 1 } gate2contact_spacings { 1 } values { 1 } } ";
    const char* dims = "dimensions of contact2contact_spacings and gate2contact_spacings vectors";
    expectErrors({
        {"thickness_var_from_ws { widths { 1 } thickness 0.1 }", "thickness", 1, kUnknowClass},
        {"thickness_var_from_ws { widths { 1 2 } spacings { 1 2 3 } values { 1 2 3 4 5 } }",
         "thickness_var_from_ws", 1, "dimensions of widths and spacings vectors do not match"},
        {"thickness_var_from_ws { widths { 1 } spacings { 1 } values { 1 }", "}", 3,
         "cannot find the end of the table"},
        {"rho_vs_width_and_spacing { widths { 1 } spacings { 1 2 } values { 0.5 0 } }",
         "rho_vs_width_and_spacing", 1, "rho values must be larger than zero"},
        {"mask ( 1 -2 )" + one, "(", 1, "expecting tuple with two non-negative integers"},
        {ev + " { nmask 1.9 }", "nmask", 1, "number of masks can not be smaller than 2"},
        {ev + " { nmask 2 mask (1 1)" + one + "mask (2 2) (1 1)" + one + "}", "mask", 2,
         "same mask id pair is specified"},
        {ev + " { mask (1 1)" + one + "}", ev, 1, "must specify nmask value"},
        {ev + " { nmask 2 mask (1 1) (1 2) (2 1) (2 2) (3 1)" + one + "}", ev, 1,
         "invalid mask id in the mask table"},
        {wl + " { widths { 1 } lengths { 1 } values { (1 2) (3) } }", "(", 2,
         "expecting 2 elements (length etch and width etch)"},
        {wl + " { widths { 1 2 } lengths { 1 } values { (1 2) } }", wl, 1,
         "dimensions of widths and lengths vectors"},
        {cg + " { num_tables 1 t1 { contact2contact_spacings { 1 2 } gate2contact_spacings { 1 } "
              "values { 1 } } }",
         "t1", 1, dims + std::string(" do not match with the values vector")},
        {cg + " { num_tables 2 t1" + sub + "}", cg, 1, "number of sub tables do not match"},
        {cg + " { num_tables 1 t1" + sub, "}", 4, "cannot find the end of the " + cg},
        {cg + " { values { 1 } num_tables 1 }", "num_tables", 1,
         "num_tables field must be specified at the beginning ot the " + cg},
        {cg + " { contact2contact_spacings { 1 } gate2contact_spacings { 1 2 } values { 1 } }", cg,
         1, dims + std::string(" do not match with the etch values vector")},
    });
}

TEST(CtfTables, ThicknessAndResistanceErrors) {
    const std::string b = "bottom_thickness_var_from_si_width", rpsq = "rpsq_vs_width_and_spacing",
                      rpv = "rpv_vs_width_and_length", poly = "thickness_var_from_polynomial";
    const std::string orders = " density_polynomial_orders { 0 } width_polynomial_orders { 0 1 } ";
    const std::string values = "vectors do not match with the values vector";
    expectErrors({
        {"thickness_var_from_d { (0.2 -1.0) (0.6 1.5) }", "(", 2,
         "invalid thickness change values(must be in the range from -1.0 to 1.0)"},
        {b + " { (0.1 0) (0.1 0.1) }", "(", 2, "width values in the tuples must be in ascending"},
        {b + " { (0.1 0.6) }", "(", 1,
         "invalid thickness change values(must be in the range from -0.5 to 0.5)"},
        {"densitybox_weight_factor { (1 1) (2 1) (3 1) (4 1) (5 1) (6 1) }", "(", 6,
         "at most 5 density boxes are allowed"},
        {"rpsq_vs_si_width { (1 10) (2 0) }", "(", 2, "rpsq values must be larger than zero"},
        {"rpv_vs_area { (2 1) (1 2) (2 3) }", "(", 3, "area values can not be duplicated"},
        {"thickness_vs_density_and_width { widths { 1 2 } densities { 0 } values { 1 } }",
         "thickness_vs_density_and_width", 1, "dimensions of widths and densities " + values},
        {"ild_thickness_var_from_effective_ws { widths { 1 } spacings { 1 } "
         "thickness_changes { 1 2 } }",
         "ild_thickness_var_from_effective_ws", 1,
         "dimensions of widths and spacings vectors do not match with the thickness_changes"},
        {"rho_vs_si_width_and_thickness { width { 1 } thickness { 1 2 } values { 1 } }",
         "rho_vs_si_width_and_thickness", 1, "dimensions of width and thickness " + values},
        {rpsq + " { widths { 1 } }", rpsq, 1, "missing rpsq value fields"},
        {rpsq + " { widths { 1 2 } values { 1 } }", rpsq, 1, "dimensions of width " + values},
        {rpsq + " { widths { 1 } spacings { 1 2 } values { 1 } }", rpsq, 1,
         "dimensions of widths and spacings " + values},
        {rpv + " { widths { 1 } lengths { 1 2 } values { 1 } }", rpv, 1,
         "dimensions of widths and lengths " + values},
        {"ceff_vs_frq_and_spacing { frq { 1 2 } spacings { 5 } values { 0.1 } }",
         "ceff_vs_frq_and_spacing", 1, "dimensions of frq and spacings " + values},
        {poly + " { thickness_bounds { 1 1 } }", "thickness_bounds", 1,
         "lower boundary value must be smaller"},
        {poly + " { density_bounds_vs_width { (2 0.1 0.5) (1 0.1 0.5) } }", "(", 2,
         "width series in the tuples must be in ascending"},
        {poly + " {" + orders + "width_ranges { 1 } polynomial_coefficients { 1 2 } }", poly, 1,
         "number of polynomial_coefficients tables do not match"},
        {poly + " {" + orders + "polynomial_coefficients { 1 2 3 } }", poly, 1,
         "dimensions of density_polynomial_orders and width_polynomial_orders"},
    });
}

}  // namespace
