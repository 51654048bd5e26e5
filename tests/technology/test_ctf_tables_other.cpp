#include <gtest/gtest.h>

#include <memory>

#include "ctf_tables_test_util.h"
#include "technology/ctf_tables.h"

// ---------------------------------------------------------------------------------------------
// Tuple tables

TEST(CtfThickness_density, GoodTableAndErrors) {
  TableReader r("thickness_var_from_d resistive_only { (0.2 -0.1) (0.6 0.1) }");
  auto* t = r.read<CtfThickness_density>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->use.resistive_only, 1);
  EXPECT_DOUBLE_EQ(t->model.getThicknessByDensity(0.5), 1.05);
  ASSERT_EQ(t->model.boxes.size(), 1u);  // the default window
  EXPECT_DOUBLE_EQ(t->model.boxes[0].first, 50.0);

  const std::string kw = "thickness_var_from_d";
  EXPECT_TABLE_ERROR(kw + " { (0.2 -0.1) (0.6) }", "(", 2,
                     "expecting 2 elements (density and thickness change) in each tuple");
  EXPECT_TABLE_ERROR(kw + " { (0.2 -1.0) (0.6 1.5) }", "(", 2,
                     "invalid thickness change values(must be in the range from -1.0 to 1.0)");
}

TEST(CtfThickness_bottom_width, GoodTableAndErrors) {
  TableReader r("bottom_thickness_var_from_si_width capacitive_only { (0.1 -0.5) (0.3 0.5) }");
  auto* t = r.read<CtfThickness_bottom_width>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->use.capacitive_only, 1);
  EXPECT_DOUBLE_EQ(t->model.getThicknessByDensity(0.2), 1.0);

  const std::string kw = "bottom_thickness_var_from_si_width";
  EXPECT_TABLE_ERROR(kw + " { (0.1 0 1) }", "(", 1,
                     "expecting 2 elements (width and thickness change) in each tuple");
  EXPECT_TABLE_ERROR(kw + " { (0.1 0) (0 0) }", "(", 2,
                     "invalid width values(must be larger than zero)");
  // Equal widths do not ascend here.
  EXPECT_TABLE_ERROR(kw + " { (0.1 0) (0.1 0.1) }", "(", 2,
                     "width values in the tuples must be in ascending order");
  EXPECT_TABLE_ERROR(kw + " { (0.1 0.6) }", "(", 1,
                     "invalid thickness change values(must be in the range from -0.5 to 0.5)");
}

TEST(CtfDensity_box, GoodTableAndErrors) {
  TableReader r("densitybox_weight_factor { (0 10) (500 -10) }");
  auto* t = r.read<CtfDensity_box>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->boxes, (std::vector<DensityBox>{{0.0, 10.0}, {500.0, -10.0}}));

  const std::string kw = "densitybox_weight_factor";
  EXPECT_TABLE_ERROR(kw + " { }", kw, 1, "at least one density box shall be specified");
  EXPECT_TABLE_ERROR(kw + " { (10 1) (20) }", "(", 2,
                     "expecting 2 elements (density box size and corresponding weights) in each "
                     "tuple");
  EXPECT_TABLE_ERROR(kw + " { (1 1) (2 1) (3 1) (4 1) (5 1) (6 1) }", "(", 6,
                     "at most 5 density boxes are allowed");
  EXPECT_TABLE_ERROR(kw + " { (10 1) (500.5 1) }", "(", 2,
                     "invalid density box sizes (must be in the range from 0.0 to 500.0)");
  EXPECT_TABLE_ERROR(kw + " { (10 -10.5) }", "(", 1,
                     "invalid weights (must be in the range from 10.0 to -10.0)");
}

TEST(CtfRPSQ_SI_width, GoodTableAndErrors) {
  TableReader r("rpsq_vs_si_width { (1 10) (2 20) }");
  auto* t = r.read<CtfRPSQ_SI_width>();
  ASSERT_NE(t, nullptr);
  EXPECT_DOUBLE_EQ(t->model.getRPSQ(1.25), 12.5);

  const std::string kw = "rpsq_vs_si_width";
  EXPECT_TABLE_ERROR(kw + " { }", kw, 1, "at least one resistance tuple shall be specified");
  EXPECT_TABLE_ERROR(kw + " { (1 10 3) }", "(", 1, "expecting 2 elements in each tuple");
  EXPECT_TABLE_ERROR(kw + " { (-1 10) }", "(", 1, "invalid width value");
  EXPECT_TABLE_ERROR(kw + " { (1 10) (1 20) }", "(", 2, "width values must be in ascending order");
  EXPECT_TABLE_ERROR(kw + " { (1 10) (2 0) }", "(", 2, "rpsq values must be larger than zero");
}

TEST(CtfRPV_Area, SortedByAreaAndErrors) {
  TableReader r("rpv_vs_area { (3 2) (1 10) }");
  auto* t = r.read<CtfRPV_Area>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->model.pairs, (std::vector<std::pair<double, double>>{{1, 10}, {3, 2}}));
  EXPECT_NEAR(t->model.getResist(2.0), 10.0 / 3.0, 1e-12);

  const std::string kw = "rpv_vs_area";
  EXPECT_TABLE_ERROR(kw + " { }", kw, 1, "at least one resistance tuple shall be specified");
  EXPECT_TABLE_ERROR(kw + " { (1) }", "(", 1, "expecting 2 elements in each tuple");
  EXPECT_TABLE_ERROR(kw + " { (1 2) (0 2) }", "(", 2, "invalid area value");
  EXPECT_TABLE_ERROR(kw + " { (1 -2) }", "(", 1, "rpv values must be larger than zero");
  EXPECT_TABLE_ERROR(kw + " { (2 1) (1 2) (2 3) }", "(", 3, "area values can not be duplicated");
}

// ---------------------------------------------------------------------------------------------
// Vector tables

TEST(CtfThickness_density_width, DensityRowsAndErrors) {
  // Two densities by three widths: the row is the density.
  TableReader r(
      "thickness_vs_density_and_width capacitive_only { siwidths { 1 2 3 } densities { 0 1 }\n"
      "  values { 0 0.1 0.2 0.3 0.4 0.5 } }");
  auto* t = r.read<CtfThickness_density_width>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->si_width, 1);
  EXPECT_EQ(t->si_density, 0);
  EXPECT_EQ(t->use.capacitive_only, 1);
  double out = 0.0;
  ASSERT_EQ(t->model.table.evalEtch(1.0, 2.0, out), 1);  // density 1, width 2
  EXPECT_DOUBLE_EQ(out, 0.4);
  ASSERT_EQ(t->model.table.evalEtch(0.0, 3.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 0.2);

  const std::string kw = "thickness_vs_density_and_width";
  EXPECT_TABLE_ERROR(kw + " { sidensities { 0.5 0.4 } }", "sidensities", 1,
                     "elements must be in ascending order");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 2 } densities { 0 } values { 1 } }", kw, 1,
                     "dimensions of widths and densities vectors do not match with the values "
                     "vector");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } values { 1 } }", kw, 1,
                     "missing necessary fields for the table");
  EXPECT_TABLE_ERROR(kw + " { spacings { 1 } }", "spacings", 1, "unknow field");
  EXPECT_TABLE_ERROR(kw + " { rho 1 }", "rho", 1, "unknow field in the table");
}

TEST(CtfILD_thickness, GoodTableAndErrors) {
  TableReader r(
      "ild_thickness_var_from_effective_ws { dielectric IMD2 widths { 1 2 } spacings { 1 }\n"
      "  thickness_changes { 0.01 0.02 } }");
  auto* t = r.read<CtfILD_thickness>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->model.dielectric, "IMD2");
  double out = 0.0;
  ASSERT_EQ(t->model.evalEtch(2.0, 1.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 0.02);
  // `dielectric` opens a statement again after the table.
  EXPECT_EQ(dynamic_cast<CtfStringAttri*>(r.ci.boundTo("dielectric")), nullptr);

  TableReader alt(
      "ild_thickness_var_from_effective_ws { dielectric_layer OX widths { 1 } spacings { 1 }\n"
      "  thickness_changes { 0.01 } }");
  EXPECT_EQ(alt.read<CtfILD_thickness>()->model.dielectric, "OX");

  const std::string kw = "ild_thickness_var_from_effective_ws";
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } spacings { 1 } }", kw, 1,
                     "missing necessary fields for the table");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } spacings { 1 } thickness_changes { 1 2 } }", kw, 1,
                     "dimensions of widths and spacings vectors do not match with the "
                     "thickness_changes vector");
  EXPECT_TABLE_ERROR(kw + " { values { 1 } }", "values", 1, "unknow field");
}

TEST(CtfRHO_SI_width_thickness, GoodTableAndErrors) {
  TableReader r(
      "rho_vs_si_width_and_thickness { width { 1 2 } thickness { 0.1 0.2 0.3 }\n"
      "  values { 1 2 3 4 5 6 } }");
  auto* t = r.read<CtfRHO_SI_width_thickness>();
  ASSERT_NE(t, nullptr);
  double out = 0.0;
  ASSERT_EQ(t->model.evalEtch(2.0, 0.1, out), 1);
  EXPECT_DOUBLE_EQ(out, 4.0);
  EXPECT_NE(dynamic_cast<CtfNumberAttri*>(r.ci.boundTo("thickness")), nullptr);

  const std::string kw = "rho_vs_si_width_and_thickness";
  EXPECT_TABLE_ERROR(kw + " { width { 1 } thickness { 1 } values { 0 } }", "values", 1,
                     "rho values must be larger than zero");
  EXPECT_TABLE_ERROR(kw + " { width { 1 } thickness { 1 2 } values { 1 } }", kw, 1,
                     "dimensions of width and thickness vectors do not match with the values "
                     "vector");
  EXPECT_TABLE_ERROR(kw + " { width { 1 } values { 1 } }", kw, 1,
                     "missing necessary fields for the table");
  // The binding is undone when the table fails, too.
  TableReader bad(kw + " { width { 1 } thickness { 1 } values { 0 } }");
  bad.error();
  EXPECT_NE(dynamic_cast<CtfNumberAttri*>(bad.ci.boundTo("thickness")), nullptr);
}

TEST(CtfRPSQ_width_spacing, GoodTablesAndErrors) {
  TableReader r("rpsq_vs_width_and_spacing { widths { 1 3 } spacings { 1 3 } values { 2 6 4 12 } }");
  auto* t = r.read<CtfRPSQ_width_spacing>();
  ASSERT_NE(t, nullptr);
  EXPECT_DOUBLE_EQ(t->model.getRPSQ(3.0, 1.0), 4.0);
  EXPECT_DOUBLE_EQ(t->model.getRPSQ(1.0, 3.0), 6.0);

  TableReader w("rpsq_vs_width_and_spacing { widths { 1 3 } values { 2 6 } }");
  EXPECT_NEAR(w.read<CtfRPSQ_width_spacing>()->model.getRPSQ(2.0, 0.0), 4.0, 1e-12);

  const std::string kw = "rpsq_vs_width_and_spacing";
  EXPECT_TABLE_ERROR(kw + " { values { 1 } }", kw, 1,
                     "must specify one of the spacings and widths field at least");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } }", kw, 1, "missing rpsq value fields");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } values { 0 } }", "values", 1,
                     "rpsq values must be larger than zero");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 2 } values { 1 } }", kw, 1,
                     "dimensions of width vectors do not match with the values vector");
  EXPECT_TABLE_ERROR(kw + " { spacings { 1 2 } values { 1 } }", kw, 1,
                     "dimensions of spacing vectors do not match with the values vector");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } spacings { 1 2 } values { 1 } }", kw, 1,
                     "dimensions of widths and spacings vectors do not match with the values "
                     "vector");
}

TEST(CtfRPV_width_length, GoodTableAndErrors) {
  TableReader r("rpv_vs_width_and_length { widths { 1 2 } lengths { 1 4 } values { 8 2 4 1 } }");
  auto* t = r.read<CtfRPV_width_length>();
  ASSERT_NE(t, nullptr);
  EXPECT_DOUBLE_EQ(t->model.getRPV(1.0, 4.0), 2.0);
  EXPECT_DOUBLE_EQ(t->model.getRPV(2.0, 1.0), 4.0);

  const std::string kw = "rpv_vs_width_and_length";
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } values { 1 } }", kw, 1,
                     "must specify the lengths and widths field");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } lengths { 1 } }", kw, 1, "missing rpv value fields");
  EXPECT_TABLE_ERROR(kw + " { widths { 0 1 } }", "widths", 1,
                     "width values must be larger than zero");
  EXPECT_TABLE_ERROR(kw + " { lengths { -1 } }", "lengths", 1,
                     "length values must be larger than zero");
  EXPECT_TABLE_ERROR(kw + " { values { 1 0 } }", "values", 1,
                     "rpv values must be larger than zero");
  EXPECT_TABLE_ERROR(kw + " { widths { 2 1 } }", "widths", 1,
                     "elements must be in ascending order");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } lengths { 1 2 } values { 1 } }", kw, 1,
                     "dimensions of widths and lengths vectors do not match with the values "
                     "vector");
}

TEST(CtfTSVCeffTable, CheckedOnly) {
  TableReader r("ceff_vs_frq_and_spacing { frq { 1 2 } spacings { 5 } values { 0.1 0.2 } }");
  EXPECT_NE(r.read<CtfTSVCeffTable>(), nullptr);
  const std::string kw = "ceff_vs_frq_and_spacing";
  EXPECT_TABLE_ERROR(kw + " { frq { 1 2 } spacings { 5 } values { 0.1 } }", kw, 1,
                     "dimensions of frq and spacings vectors do not match with the values vector");
  EXPECT_TABLE_ERROR(kw + " { frq { 1 } values { 0.1 } }", kw, 1,
                     "missing necessary fields for the table");
}

// ---------------------------------------------------------------------------------------------
// thickness_var_from_polynomial

TEST(CtfThickness_polynomial, GoodTable) {
  TableReader r(
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
  // Width 0.5 lies in the first range; density 0.3 inside the bounds at that width.
  double out = 0.0;
  ASSERT_EQ(t->model.getThickness(0.3, 0.5, out, 0.0), 1);
  EXPECT_NEAR(out, 0.01 + 0.02 * 0.5 + 0.3 * (0.03 + 0.04 * 0.5), 1e-15);
  ASSERT_EQ(t->model.getThickness(0.3, 2.0, out, 0.0), 1);
  EXPECT_NEAR(out, 0.1, 1e-15);
}

TEST(CtfThickness_polynomial, ErrorTexts) {
  const std::string kw = "thickness_var_from_polynomial";
  const std::string orders =
      " density_polynomial_orders { 0 } width_polynomial_orders { 0 1 } ";
  EXPECT_TABLE_ERROR(kw + " { thickness_bounds { 1 } }", "thickness_bounds", 1,
                     "must have 2 thickness values");
  EXPECT_TABLE_ERROR(kw + " { thickness_bounds { 0 1 } }", "thickness_bounds", 1,
                     "thickness bounds values must be larger than zero");
  EXPECT_TABLE_ERROR(kw + " { thickness_bounds { 1 1 } }", "thickness_bounds", 1,
                     "lower boundary value must be smaller than upper boundary value");
  EXPECT_TABLE_ERROR(kw + " { width_ranges { 2 1 } }", "width_ranges", 1,
                     "elements must in ascending order");
  EXPECT_TABLE_ERROR(kw + " { density_bounds_vs_width { (1 0.1 0.5) (2 0.1) } }", "(", 2,
                     "must have 3 values in each tuples");
  EXPECT_TABLE_ERROR(kw + " { density_bounds_vs_width { (2 0.1 0.5) (1 0.1 0.5) } }", "(", 2,
                     "width series in the tuples must be in ascending order");
  EXPECT_TABLE_ERROR(kw + " {" + orders + "width_ranges { 1 } polynomial_coefficients { 1 2 } }",
                     kw, 1,
                     "number of polynomial_coefficients tables do not match with the "
                     "width_ranges");
  EXPECT_TABLE_ERROR(kw + " {" + orders + "polynomial_coefficients { 1 2 3 } }", kw, 1,
                     "dimensions of density_polynomial_orders and width_polynomial_orders "
                     "vectors do not match with the polynomial_coefficients");
  EXPECT_TABLE_ERROR(kw + " {" + orders + "}", kw, 1, "missing necessary fields for the table");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } }", "widths", 1, "unknown field in the table");
  EXPECT_TABLE_ERROR(kw + " { rho 1 }", "rho", 1, "unknow field in the table");
}
