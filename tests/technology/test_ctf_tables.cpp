// The process tables: one good input of each read into its model (row order checked with
// asymmetric values), the keyword rebindings, and every error text with the word it names.
#include <gtest/gtest.h>

#include <memory>

#include "tech_test_util.h"
#include "technology/ctf_tables.h"

namespace {

using namespace tech_test;

double eval(const EtchModel& m, double w, double s) {
    double out = -999.0;
    EXPECT_EQ(m.evalEtch(w, s, out), 1) << w << "," << s;
    return out;
}

double evalMask(const SyntheticEtchModel& m, int a, int b) {
    double out = -999.0;
    EXPECT_EQ(m.evalEtch(1.0, 1.0, a, b, out), 1) << a << "," << b;
    return out;
}

// Rows are widths, the spacing runs fastest: row w=1 is 1 2 3, row w=2 is 10 20 30.
const std::string kBody = "{ widths { 1 2 } spacings { 10 20 30 } values { 1 2 3 10 20 30 } }";

TEST(CtfTables, WidthSpacingFamilyKeepsTheRowOrder) {
    for (const char* kw : {"thickness_var_from_ws", "side_tan_vs_si_width_and_spacing",
                           "spacer_er_from_gate_ws", "rho_vs_width_and_spacing", "mask (1 2)"}) {
        Reader r(std::string(kw) + " " + kBody);
        auto* t = r.read<CtfEtch_width_spacing_template>();
        ASSERT_NE(t, nullptr) << kw;
        EXPECT_DOUBLE_EQ(eval(t->model, 1.0, 20.0), 2.0) << kw;
        EXPECT_DOUBLE_EQ(eval(t->model, 2.0, 10.0), 10.0) << kw;
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
    Reader r("width_var_from_ws " + kBody);
    auto* t = r.read<CtfEtch_width_spacing>();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->is_multi_mask, 0);
    EXPECT_DOUBLE_EQ(eval(t->model, 2.0, 30.0), 30.0);
    EXPECT_EQ(t->use.capacitive_only + t->use.resistive_only + t->use.etch_from_top, 0);
    Reader f("width_var_from_ws { resistive_only etch_from_top " + kBody.substr(2));
    t = f.read<CtfEtch_width_spacing>();
    EXPECT_EQ(t->use.resistive_only + t->use.etch_from_top, 2);
    EXPECT_EQ(t->use.capacitive_only, 0);

    // Two masks: the defaults come from the cross-mask tables (1,2) and (2,1).
    Reader mm(std::string(kTwoMasks) + "\n" + kTwoMasks);
    t = mm.read<CtfEtch_width_spacing>();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->is_multi_mask, 1);
    EXPECT_EQ(t->mask_model.nmask, 2);
    EXPECT_DOUBLE_EQ(t->mask_model.max_feature, 5.0);
    std::unique_ptr<SyntheticEtchModel> kept(t->mask_model.clone());
    ASSERT_TRUE(mm.ci.stream.next());
    ASSERT_NE(mm.read<CtfEtch_width_spacing>(), nullptr);  // the processor reads again
    for (const SyntheticEtchModel* s : {kept.get(), &t->mask_model}) {
        EXPECT_DOUBLE_EQ(evalMask(*s, 2, 2), 1.0);
        EXPECT_DOUBLE_EQ(evalMask(*s, 1, 2), 2.0);
        EXPECT_DOUBLE_EQ(evalMask(*s, 0, 0), 2.0);
        EXPECT_DOUBLE_EQ(evalMask(*s, 0, 1), 3.0);
        EXPECT_DOUBLE_EQ(evalMask(*s, 1, 0), 2.0);
    }
}

TEST(CtfTables, WidthVarFromWlSquareAndLongVias) {
    // Widths 0.1, 0.2 by lengths 0.1, 0.2, 0.3; tuples (length etch, width etch).
    Reader r(
        "width_var_from_wl { widths { 0.1 0.2 } lengths { 0.1 0.2 0.3 }\n"
        "  values { (1 2) (3 4) (5 6) (7 8) (9 10) (11 12) } }");
    auto* t = r.read<CtfEtch_width_length>();
    ASSERT_NE(t, nullptr);
    // Length above width: no etch; length equal to width: the width etch on both.
    EXPECT_EQ(t->length_model.values, (std::vector<double>{2, 0, 0, 7, 10, 0}));
    EXPECT_EQ(t->width_model.values, (std::vector<double>{2, 0, 0, 8, 10, 0}));
    EXPECT_DOUBLE_EQ(eval(t->width_model, 0.2, 0.1), 8.0);
    // `values` is a plain vector again after the table.
    EXPECT_NE(dynamic_cast<CtfVector*>(r.ci.boundTo("values")), nullptr);
}

TEST(CtfTables, ContactGateSubTablesAndDirectForm) {
    Reader r(
        "width_var_from_contact_gate_s { num_tables 2.5\n"
        "  t1 { contact2contact_spacings { 1 2 } gate2contact_spacings { 0.1 0.2 0.3 }\n"
        "       values { 1 2 3 4 5 6 } }\n"
        "  t2 { values { 7 } gate2contact_spacings { 0.1 } contact2contact_spacings { 1 } }\n"
        "}");
    auto* t = r.read<CtfEtch_contact_gate_spacing>();
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->models.size(), 2u);
    EXPECT_EQ(t->names, (std::vector<std::string>{"t1", "t2"}));
    // First axis contact-to-contact, second gate-to-contact.
    EXPECT_DOUBLE_EQ(eval(t->models[0], 2.0, 0.1), 4.0);
    EXPECT_DOUBLE_EQ(eval(t->models[1], 5.0, 5.0), 7.0);
    EXPECT_EQ(r.ci.default_processor, nullptr);

    Reader d(
        "width_var_from_contact_gate_s { gate2contact_spacings { 0.1 0.2 } values { 1 2 3 4 }\n"
        "  contact2contact_spacings { 1 2 } }");
    t = d.read<CtfEtch_contact_gate_spacing>();
    ASSERT_EQ(t->models.size(), 1u);
    EXPECT_DOUBLE_EQ(eval(t->models[0], 2.0, 0.1), 3.0);

    // The sub-table router is gone after an error, too.
    Reader bad("width_var_from_contact_gate_s { num_tables 1 t1 { rho 1 } }");
    EXPECT_NE(bad.error(), "no error");
    EXPECT_EQ(bad.ci.default_processor, nullptr);
}

TEST(CtfTables, TupleTables) {
    Reader d("thickness_var_from_d resistive_only { (0.2 -0.1) (0.6 0.1) }");
    auto* density = d.read<CtfThickness_density>();
    ASSERT_NE(density, nullptr);
    EXPECT_EQ(density->use.resistive_only, 1);
    EXPECT_DOUBLE_EQ(density->model.getThicknessByDensity(0.5), 1.05);

    Reader b("bottom_thickness_var_from_si_width capacitive_only { (0.1 -0.5) (0.3 0.5) }");
    auto* bottom = b.read<CtfThickness_bottom_width>();
    ASSERT_NE(bottom, nullptr);
    EXPECT_EQ(bottom->use.capacitive_only, 1);
    EXPECT_DOUBLE_EQ(bottom->model.getThicknessByDensity(0.2), 1.0);

    Reader box("densitybox_weight_factor { (0 10) (500 -10) }");
    EXPECT_EQ(box.read<CtfDensity_box>()->boxes,
              (std::vector<DensityBox>{{0.0, 10.0}, {500.0, -10.0}}));

    Reader rs("rpsq_vs_si_width { (1 10) (2 20) }");
    EXPECT_DOUBLE_EQ(rs.read<CtfRPSQ_SI_width>()->model.getRPSQ(1.25), 12.5);

    Reader ra("rpv_vs_area { (3 2) (1 10) }");
    EXPECT_EQ(ra.read<CtfRPV_Area>()->model.pairs,
              (std::vector<std::pair<double, double>>{{1, 10}, {3, 2}}));
}

TEST(CtfTables, VectorTablesAndTheirRebindings) {
    // Two densities by three widths: the row is the density.
    Reader dw(
        "thickness_vs_density_and_width { siwidths { 1 2 3 } densities { 0 1 }\n"
        "  values { 0 0.1 0.2 0.3 0.4 0.5 } }");
    auto* t = dw.read<CtfThickness_density_width>();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->si_width, 1);
    EXPECT_EQ(t->si_density, 0);
    EXPECT_DOUBLE_EQ(eval(t->model.table, 1.0, 2.0), 0.4);

    Reader ild(
        "ild_thickness_var_from_effective_ws { dielectric_layer OX widths { 1 2 } spacings { 1 }\n"
        "  thickness_changes { 0.01 0.02 } }");
    auto* i = ild.read<CtfILD_thickness>();
    ASSERT_NE(i, nullptr);
    EXPECT_EQ(i->model.dielectric, "OX");
    EXPECT_DOUBLE_EQ(eval(i->model, 2.0, 1.0), 0.02);
    Reader named(
        "ild_thickness_var_from_effective_ws { dielectric IMD2 widths { 1 } spacings { 1 }\n"
        "  thickness_changes { 0.01 } }");
    EXPECT_EQ(named.read<CtfILD_thickness>()->model.dielectric, "IMD2");
    // `dielectric` opens a statement again after the table.
    EXPECT_EQ(dynamic_cast<CtfStringAttri*>(named.ci.boundTo("dielectric")), nullptr);

    Reader rho(
        "rho_vs_si_width_and_thickness { width { 1 2 } thickness { 0.1 0.2 0.3 }\n"
        "  values { 1 2 3 4 5 6 } }");
    EXPECT_DOUBLE_EQ(eval(rho.read<CtfRHO_SI_width_thickness>()->model, 2.0, 0.1), 4.0);
    EXPECT_NE(dynamic_cast<CtfNumberAttri*>(rho.ci.boundTo("thickness")), nullptr);
    Reader bad("rho_vs_si_width_and_thickness { width { 1 } thickness { 1 } values { 0 } }");
    EXPECT_NE(bad.error(), "no error");
    EXPECT_NE(dynamic_cast<CtfNumberAttri*>(bad.ci.boundTo("thickness")), nullptr);

    // Row w=1: 2 6; row w=3: 4 12.
    Reader rpsq(
        "rpsq_vs_width_and_spacing { widths { 1 3 } spacings { 1 3 } values { 2 6 4 12 } }");
    EXPECT_DOUBLE_EQ(rpsq.read<CtfRPSQ_width_spacing>()->model.getRPSQ(3.0, 1.0), 4.0);
    Reader one("rpsq_vs_width_and_spacing { widths { 1 3 } values { 2 6 } }");
    EXPECT_DOUBLE_EQ(one.read<CtfRPSQ_width_spacing>()->model.getRPSQ(3.0, 0.0), 6.0);

    Reader rpv("rpv_vs_width_and_length { widths { 1 2 } lengths { 1 4 } values { 8 2 4 1 } }");
    EXPECT_DOUBLE_EQ(rpv.read<CtfRPV_width_length>()->model.getRPV(2.0, 1.0), 4.0);

    EXPECT_EQ(errorOf("ceff_vs_frq_and_spacing { frq { 1 2 } spacings { 5 } values { 1 2 } }"),
              "no error");
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
    EXPECT_EQ(t->valid, 1);
    EXPECT_EQ(t->has_density_bounds, 1);
    EXPECT_EQ(t->model.si_density, 1);
    EXPECT_EQ(t->model.si_width, 0);
    double lo = 0, hi = 0;
    ASSERT_EQ(t->model.getThicknessBounds(lo, hi), 1);
    EXPECT_DOUBLE_EQ(lo, 0.9);
    EXPECT_DOUBLE_EQ(hi, 1.1);
    EXPECT_EQ(t->model.bound_widths, (std::vector<double>{1, 3}));
    // Width 0.5 lies in the first range, 2 in the second; density 0.3 is inside its bounds.
    double out = 0.0;
    ASSERT_EQ(t->model.getThickness(0.3, 0.5, out, 0.0), 1);
    EXPECT_NEAR(out, 0.01 + 0.02 * 0.5 + 0.3 * (0.03 + 0.04 * 0.5), 1e-15);
    ASSERT_EQ(t->model.getThickness(0.3, 2.0, out, 0.0), 1);
    EXPECT_NEAR(out, 0.1, 1e-15);
}

TEST(CtfTables, SharedErrorTextsInEveryTable) {
    const std::vector<std::string> width_spacing = {"thickness_var_from_ws",
                                                    "side_tan_vs_si_width_and_spacing",
                                                    "spacer_er_from_gate_ws",
                                                    "rho_vs_width_and_spacing",
                                                    "mask",
                                                    "width_var_from_ws"};
    std::vector<std::string> vector_tables = width_spacing;
    vector_tables.insert(vector_tables.end(),
                         {"width_var_from_wl", "width_var_from_contact_gate_s",
                          "thickness_vs_density_and_width", "ild_thickness_var_from_effective_ws",
                          "rho_vs_si_width_and_thickness", "ceff_vs_frq_and_spacing"});
    std::vector<ErrorCase> cases;
    auto each = [&](const std::vector<std::string>& tables, const std::string& body,
                    const std::string& word, const char* message) {
        for (const std::string& kw : tables)
            cases.push_back(
                {"\n " + kw + " {\n " + body + " }", word.empty() ? kw : word, 1, message});
    };
    std::vector<std::string> with_poly = vector_tables;
    with_poly.push_back("thickness_var_from_polynomial");
    each(with_poly, "", "", kMissing);
    each(with_poly, "er_table { (a 1) }", "er_table", kUnknowClass);
    std::vector<std::string> with_rates = vector_tables;
    with_rates.insert(with_rates.end(), {"rpsq_vs_width_and_spacing", "rpv_vs_width_and_length"});
    each(with_rates, "gate_pitch { 1 }", "gate_pitch", kUnknowField);
    std::vector<std::string> with_wl = width_spacing;
    with_wl.push_back("width_var_from_wl");
    each(with_wl, "widths { }", "widths", kAtLeastOne);
    with_wl.insert(with_wl.end(), {"thickness_vs_density_and_width", "rpv_vs_width_and_length"});
    each(with_wl, "widths { 2 1 }", "widths", kAscending);
    each({"width_var_from_contact_gate_s"}, "contact2contact_spacings { 2 1 }",
         "contact2contact_spacings", kAscending);
    expectErrors(cases);
}

TEST(CtfTables, WidthVariationErrors) {
    const std::string ev = "width_var_from_ws";
    const std::string one = " { widths { 1 } spacings { 1 } values { 1 } } ";
    const std::string wl = "width_var_from_wl";
    const std::string cg = "width_var_from_contact_gate_s";
    const std::string sub =
        " { contact2contact_spacings { 1 } gate2contact_spacings { 1 } values { 1 } } ";
    const char* head =
        "expecting mask id pair beginning with LEFT PARENTHESIS or table content beginning with "
        "LEFT BRACE";
    const char* pair = "expecting tuple with two non-negative integers";
    expectErrors({
        {"thickness_var_from_ws { widths { 1 } thickness 0.1 }", "thickness", 1, kUnknowClass},
        {"thickness_var_from_ws { widths { 1 2 } spacings { 1 2 3 } values { 1 2 3 4 5 } }",
         "thickness_var_from_ws", 1,
         "dimensions of widths and spacings vectors do not match with the values vector"},
        {"thickness_var_from_ws { widths { 1 } spacings { 1 } values { 1 }", "}", 3,
         "cannot find the end of the table"},
        {"rho_vs_width_and_spacing { widths { 1 } spacings { 1 2 } values { 0.5 0 } }",
         "rho_vs_width_and_spacing", 1, "rho values must be larger than zero"},
        {"mask ( 1 -2 )" + one, "(", 1, pair},
        {"mask ( 1 2 ) ( 1 2 3 )" + one, "(", 2, pair},
        {"mask ( 1 2 ) x" + one, "x", 1, head},
        {"mask", "mask", 1, head},

        {ev + " { nmask 1.9 }", "nmask", 1, "number of masks can not be smaller than 2"},
        {ev + " { nmask 2 mask (1 1)" + one + "mask (2 2) (1 1)" + one + "}", "mask", 2,
         "same mask id pair is specified more than once"},
        {ev + " { mask (1 1)" + one + "}", ev, 1,
         "must specify nmask value for the multi-mask etch model"},
        {ev + " { nmask 2 mask (1 1) (1 2) (2 1) (2 2) (3 1)" + one + "}", ev, 1,
         "invalid mask id in the mask table (must not be greater than the number of masks)"},
        {ev + " { nmask 2 mask (1 1) (1 2) (2 1)" + one + "}", ev, 1,
         "missing mask tables (must specify all the possible combinations of the mask ids)"},
        {ev + " { is_gate }", "is_gate", 1, kUnknowField},
        {ev + " { rho 2 }", "rho", 1, kUnknowField},

        {wl + " { widths { 1 } lengths { 1 } values { (1 2) (3) } }", "(", 2,
         "expecting 2 elements (length etch and width etch) in each tuple"},
        {wl + " { widths { 1 } lengths { 1 } values { } }", "values", 1,
         "expecting at least one etch value tuple"},
        {wl + " { widths { 1 2 } lengths { 1 } values { (1 2) } }", wl, 1,
         "dimensions of widths and lengths vectors do not match with the values vector"},
        {wl + " { er_sispacing { (1 2) } }", "er_sispacing", 1, kUnknowField},

        {cg + " { num_tables 0.5 }", "num_tables", 1,
         "invalid sub table number of the width_var_from_contact_gate_s table"},
        {cg + " { num_tables 1 t1 x }", "x", 1,
         "expecting sub table content beginning with LEFT BRACE"},
        {cg + " { num_tables 1 t1 { widths { 1 } } }", "widths", 1,
         "unknown field in the sub table"},
        {cg + " { num_tables 1 t1 { rho 1 } }", "rho", 1, "unknown field in the sub table"},
        {cg + " { num_tables 1 t1 { contact2contact_spacings { 1 2 } "
              "gate2contact_spacings { 1 } values { 1 } } }",
         "t1", 1,
         "dimensions of contact2contact_spacings and gate2contact_spacings vectors do not match "
         "with the values vector"},
        {cg + " { num_tables 1 t1 { values { 1 } } }", "t1", 1, kMissing},
        {cg + " { num_tables 1 widths { 1 } }", "widths", 1, "unknown field in the table"},
        {cg + " { num_tables 2 t1" + sub + "}", cg, 1,
         "number of sub tables do not match with num_tables field"},
        {cg + " { num_tables 1 t1" + sub, "}", 4,
         "cannot find the end of the width_var_from_contact_gate_s table"},
        {cg + " { values { 1 } num_tables 1 }", "num_tables", 1,
         "num_tables field must be specified at the beginning ot the "
         "width_var_from_contact_gate_s table"},
        {cg + " { contact2contact_spacings { 1 } gate2contact_spacings { 1 2 } values { 1 } }", cg,
         1,
         "dimensions of contact2contact_spacings and gate2contact_spacings vectors do not match "
         "with the etch values vector"},
        {cg + " { values { 1 }", "}", 1, "cannot find the end of the width_var_from_ws table"},
    });
}

TEST(CtfTables, ThicknessAndResistanceErrors) {
    const std::string d = "thickness_var_from_d";
    const std::string b = "bottom_thickness_var_from_si_width";
    const std::string box = "densitybox_weight_factor";
    const std::string rs = "rpsq_vs_si_width";
    const std::string ra = "rpv_vs_area";
    const std::string rpsq = "rpsq_vs_width_and_spacing";
    const std::string rpv = "rpv_vs_width_and_length";
    const std::string poly = "thickness_var_from_polynomial";
    const std::string orders = " density_polynomial_orders { 0 } width_polynomial_orders { 0 1 } ";
    const char* tuple = "expecting 2 elements in each tuple";
    const char* one_tuple = "at least one resistance tuple shall be specified";
    expectErrors({
        {d + " { (0.2 -0.1) (0.6) }", "(", 2,
         "expecting 2 elements (density and thickness change) in each tuple"},
        {d + " { (0.2 -1.0) (0.6 1.5) }", "(", 2,
         "invalid thickness change values(must be in the range from -1.0 to 1.0)"},
        {b + " { (0.1 0 1) }", "(", 1,
         "expecting 2 elements (width and thickness change) in each tuple"},
        {b + " { (0.1 0) (0 0) }", "(", 2, "invalid width values(must be larger than zero)"},
        {b + " { (0.1 0) (0.1 0.1) }", "(", 2,
         "width values in the tuples must be in ascending order"},
        {b + " { (0.1 0.6) }", "(", 1,
         "invalid thickness change values(must be in the range from -0.5 to 0.5)"},
        {box + " { }", box, 1, "at least one density box shall be specified"},
        {box + " { (10 1) (20) }", "(", 2,
         "expecting 2 elements (density box size and corresponding weights) in each tuple"},
        {box + " { (1 1) (2 1) (3 1) (4 1) (5 1) (6 1) }", "(", 6,
         "at most 5 density boxes are allowed"},
        {box + " { (10 1) (500.5 1) }", "(", 2,
         "invalid density box sizes (must be in the range from 0.0 to 500.0)"},
        {box + " { (10 -10.5) }", "(", 1,
         "invalid weights (must be in the range from 10.0 to -10.0)"},
        {rs + " { }", rs, 1, one_tuple},
        {rs + " { (1 10 3) }", "(", 1, tuple},
        {rs + " { (-1 10) }", "(", 1, "invalid width value"},
        {rs + " { (1 10) (1 20) }", "(", 2, "width values must be in ascending order"},
        {rs + " { (1 10) (2 0) }", "(", 2, "rpsq values must be larger than zero"},
        {ra + " { }", ra, 1, one_tuple},
        {ra + " { (1) }", "(", 1, tuple},
        {ra + " { (1 2) (0 2) }", "(", 2, "invalid area value"},
        {ra + " { (1 -2) }", "(", 1, "rpv values must be larger than zero"},
        {ra + " { (2 1) (1 2) (2 3) }", "(", 3, "area values can not be duplicated"},

        {"thickness_vs_density_and_width { widths { 1 2 } densities { 0 } values { 1 } }",
         "thickness_vs_density_and_width", 1,
         "dimensions of widths and densities vectors do not match with the values vector"},
        {"ild_thickness_var_from_effective_ws { widths { 1 } spacings { 1 } "
         "thickness_changes { 1 2 } }",
         "ild_thickness_var_from_effective_ws", 1,
         "dimensions of widths and spacings vectors do not match with the thickness_changes "
         "vector"},
        {"rho_vs_si_width_and_thickness { width { 1 } thickness { 1 } values { 0 } }", "values", 1,
         "rho values must be larger than zero"},
        {"rho_vs_si_width_and_thickness { width { 1 } thickness { 1 2 } values { 1 } }",
         "rho_vs_si_width_and_thickness", 1,
         "dimensions of width and thickness vectors do not match with the values vector"},
        {rpsq + " { values { 1 } }", rpsq, 1,
         "must specify one of the spacings and widths field at least"},
        {rpsq + " { widths { 1 } }", rpsq, 1, "missing rpsq value fields"},
        {rpsq + " { widths { 1 } values { 0 } }", "values", 1,
         "rpsq values must be larger than zero"},
        {rpsq + " { widths { 1 2 } values { 1 } }", rpsq, 1,
         "dimensions of width vectors do not match with the values vector"},
        {rpsq + " { spacings { 1 2 } values { 1 } }", rpsq, 1,
         "dimensions of spacing vectors do not match with the values vector"},
        {rpsq + " { widths { 1 } spacings { 1 2 } values { 1 } }", rpsq, 1,
         "dimensions of widths and spacings vectors do not match with the values vector"},
        {rpv + " { widths { 1 } values { 1 } }", rpv, 1,
         "must specify the lengths and widths field"},
        {rpv + " { widths { 1 } lengths { 1 } }", rpv, 1, "missing rpv value fields"},
        {rpv + " { widths { 0 1 } }", "widths", 1, "width values must be larger than zero"},
        {rpv + " { lengths { -1 } }", "lengths", 1, "length values must be larger than zero"},
        {rpv + " { values { 1 0 } }", "values", 1, "rpv values must be larger than zero"},
        {rpv + " { widths { 1 } lengths { 1 2 } values { 1 } }", rpv, 1,
         "dimensions of widths and lengths vectors do not match with the values vector"},
        {"ceff_vs_frq_and_spacing { frq { 1 2 } spacings { 5 } values { 0.1 } }",
         "ceff_vs_frq_and_spacing", 1,
         "dimensions of frq and spacings vectors do not match with the values vector"},

        {poly + " { thickness_bounds { 1 } }", "thickness_bounds", 1,
         "must have 2 thickness values"},
        {poly + " { thickness_bounds { 0 1 } }", "thickness_bounds", 1,
         "thickness bounds values must be larger than zero"},
        {poly + " { thickness_bounds { 1 1 } }", "thickness_bounds", 1,
         "lower boundary value must be smaller than upper boundary value"},
        {poly + " { width_ranges { 2 1 } }", "width_ranges", 1, "elements must in ascending order"},
        {poly + " { density_bounds_vs_width { (1 0.1 0.5) (2 0.1) } }", "(", 2,
         "must have 3 values in each tuples"},
        {poly + " { density_bounds_vs_width { (2 0.1 0.5) (1 0.1 0.5) } }", "(", 2,
         "width series in the tuples must be in ascending order"},
        {poly + " {" + orders + "width_ranges { 1 } polynomial_coefficients { 1 2 } }", poly, 1,
         "number of polynomial_coefficients tables do not match with the width_ranges"},
        {poly + " {" + orders + "polynomial_coefficients { 1 2 3 } }", poly, 1,
         "dimensions of density_polynomial_orders and width_polynomial_orders vectors do not "
         "match with the polynomial_coefficients"},
        {poly + " { widths { 1 } }", "widths", 1, "unknown field in the table"},
    });
}

}  // namespace
