#include <gtest/gtest.h>

#include <memory>

#include "ctf_tables_test_util.h"
#include "technology/ctf_tables.h"

namespace {

double eval(const EtchModel& m, double w, double s) {
  double out = -999.0;
  EXPECT_EQ(m.evalEtch(w, s, out), 1);
  return out;
}

double evalMask(const SyntheticEtchModel& m, int a, int b) {
  double out = -999.0;
  EXPECT_EQ(m.evalEtch(1.0, 1.0, a, b, out), 1) << a << "," << b;
  return out;
}

const char* const kBody = "{ widths { 1 2 } spacings { 10 20 30 } values { 1 2 3 10 20 30 } }";

}  // namespace

TEST(CtfWidthSpacingTables, GoodTablesKeepTheRowOrder) {
  TableReader r(std::string("thickness_var_from_ws capacitive_only ") + kBody);
  auto* t = r.read<CtfThickness_width_spacing>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->use.capacitive_only, 1);
  EXPECT_EQ(t->use.resistive_only, 0);
  EXPECT_DOUBLE_EQ(eval(t->model, 1.0, 20.0), 2.0);
  EXPECT_DOUBLE_EQ(eval(t->model, 2.0, 10.0), 10.0);
  EXPECT_EQ(r.ci.stream.token(), "}");

  // Any order of the vectors; equal neighbours pass the ascending rule.
  TableReader s("side_tan_vs_si_width_and_spacing { values { 4 5 } spacings { 3 3 } widths { 1 } }");
  auto* side = s.read<CtfSideTan_width_spacing>();
  ASSERT_NE(side, nullptr);
  EXPECT_EQ(side->model.values.size(), 2u);

  TableReader sp(std::string("spacer_er_from_gate_ws ") + kBody);
  ASSERT_NE(sp.read<CtfSpacer_er_vs_width_spacing>(), nullptr);

  TableReader rho("rho_vs_width_and_spacing { widths { 1 } spacings { 1 2 } values { 0.5 0.7 } }");
  auto* rt = rho.read<CtfRHO_width_spacing>();
  ASSERT_NE(rt, nullptr);
  EXPECT_DOUBLE_EQ(eval(rt->model, 1.0, 2.0), 0.7);
}

TEST(CtfWidthSpacingTables, ErrorTexts) {
  const std::string kw = "thickness_var_from_ws";
  EXPECT_TABLE_ERROR(kw + " { widths { } spacings { 1 } values { 1 } }", "widths", 1,
                     "expecting at least one number value in the vector");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } spacings { 2 1 } values { 1 2 } }", "spacings", 1,
                     "elements must be in ascending order");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 }\n  lengths { 1 } }", "lengths", 1, "unknow field");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } thickness 0.1 }", "thickness", 1,
                     "unknow field in the table");
  EXPECT_TABLE_ERROR("\n" + kw + " { widths { 1 } spacings { 1 } }", kw, 1,
                     "missing necessary fields for the table");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 2 } spacings { 1 2 3 } values { 1 2 3 4 5 } }", kw, 1,
                     "dimensions of widths and spacings vectors do not match with the values "
                     "vector");
  {
    TableReader zero(kw + " { widths { 1 } spacings { 1 2 } values { 0.5 0 } }");
    EXPECT_EQ(zero.error(), "no error");  // only rho tables require positive values
  }
  EXPECT_TABLE_ERROR("rho_vs_width_and_spacing { widths { 1 } spacings { 1 2 } values { 0.5 0 } }",
                     "rho_vs_width_and_spacing", 1, "rho values must be larger than zero");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } spacings { 1 } values { 1 }", "}", 3,
                     "cannot find the end of the table");
}

TEST(CtfMaskEtchTable, HeaderPairs) {
  TableReader r("mask ( 1 2 ) ( 2.9 1 ) ( 1 2 ) { widths { 1 } spacings { 1 } values { 3 } }");
  auto* m = r.read<CtfMaskEtchTable>();
  ASSERT_NE(m, nullptr);
  const std::set<MaskPair> expected = {{1, 2}, {2, 1}};
  EXPECT_EQ(m->pairs, expected);
  EXPECT_DOUBLE_EQ(eval(m->model, 0.0, 0.0), 3.0);

  const std::string body = " { widths { 1 } spacings { 1 } values { 3 } }";
  EXPECT_TABLE_ERROR("mask ( 1 -2 )" + body, "(", 1,
                     "expecting tuple with two non-negative integers");
  EXPECT_TABLE_ERROR("mask ( 1 2 ) ( 1 2 3 )" + body, "(", 2,
                     "expecting tuple with two non-negative integers");
  EXPECT_TABLE_ERROR("mask ( 1 2 ) x" + body, "x", 1,
                     "expecting mask id pair beginning with LEFT PARENTHESIS or table content "
                     "beginning with LEFT BRACE");
  EXPECT_TABLE_ERROR("mask", "mask", 1,
                     "expecting mask id pair beginning with LEFT PARENTHESIS or table content "
                     "beginning with LEFT BRACE");
}

TEST(CtfEtch_width_spacing, SingleMaskAndSelection) {
  TableReader r(std::string("width_var_from_ws ") + kBody);
  auto* t = r.read<CtfEtch_width_spacing>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->is_multi_mask, 0);
  EXPECT_DOUBLE_EQ(eval(t->model, 2.0, 30.0), 30.0);
  EXPECT_EQ(t->use.capacitive_only + t->use.resistive_only + t->use.etch_from_top, 0);

  TableReader named(std::string("width_var_from_ws capacitive_only ") + kBody);
  EXPECT_EQ(named.read<CtfEtch_width_spacing>()->use.capacitive_only, 1);

  TableReader flag("width_var_from_ws { resistive_only etch_from_top widths { 1 } spacings { 1 } "
                   "values { 0.1 } }");
  auto* f = flag.read<CtfEtch_width_spacing>();
  EXPECT_EQ(f->use.resistive_only, 1);
  EXPECT_EQ(f->use.etch_from_top, 1);
  EXPECT_EQ(f->use.capacitive_only, 0);
}

namespace {

const char* const kTwoMasks =
    "width_var_from_ws { nmask 2.7\n"
    "  mask (1 1) (2 2) { widths { 1 } spacings { 1 } values { 1 } }\n"
    "  mask (1 2) { widths { 1 } spacings { 1 5 } values { 2 2 } }\n"
    "  mask (2 1) { widths { 1 } spacings { 1 } values { 3 } }\n"
    "}";

}  // namespace

TEST(CtfEtch_width_spacing, MultiMaskTableWithDefaults) {
  TableReader r(kTwoMasks);
  auto* t = r.read<CtfEtch_width_spacing>();
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->is_multi_mask, 1);
  EXPECT_EQ(t->mask_model.nmask, 2);
  EXPECT_DOUBLE_EQ(t->mask_model.max_feature, 5.0);
  EXPECT_DOUBLE_EQ(evalMask(t->mask_model, 2, 2), 1.0);
  EXPECT_DOUBLE_EQ(evalMask(t->mask_model, 1, 2), 2.0);
  EXPECT_DOUBLE_EQ(evalMask(t->mask_model, 0, 0), 2.0);
  EXPECT_DOUBLE_EQ(evalMask(t->mask_model, 0, 1), 3.0);
  EXPECT_DOUBLE_EQ(evalMask(t->mask_model, 1, 0), 2.0);

  // A copy taken out survives the next read through the same processor.
  std::unique_ptr<SyntheticEtchModel> kept(t->mask_model.clone());
  TableReader again(std::string(kTwoMasks) + "\n" + kTwoMasks);
  again.read<CtfEtch_width_spacing>();
  std::unique_ptr<SyntheticEtchModel> first(
      dynamic_cast<CtfEtch_width_spacing*>(again.ci.boundTo("width_var_from_ws"))
          ->mask_model.clone());
  ASSERT_TRUE(again.ci.stream.next());
  auto* second = again.read<CtfEtch_width_spacing>();
  ASSERT_NE(second, nullptr);
  EXPECT_DOUBLE_EQ(evalMask(*first, 2, 1), 3.0);
  EXPECT_DOUBLE_EQ(evalMask(*kept, 0, 1), 3.0);
  EXPECT_EQ(first->owned.size(), 3u);
}

TEST(CtfEtch_width_spacing, ErrorTexts) {
  const std::string kw = "width_var_from_ws";
  const std::string one = " { widths { 1 } spacings { 1 } values { 1 } } ";
  EXPECT_TABLE_ERROR(kw + " { nmask 1.9 }", "nmask", 1, "number of masks can not be smaller than 2");
  EXPECT_TABLE_ERROR(kw + " { nmask 2 mask (1 1)" + one + "mask (2 2) (1 1)" + one + "}", "mask",
                     2, "same mask id pair is specified more than once");
  EXPECT_TABLE_ERROR(kw + " { mask (1 1)" + one + "}", kw, 1,
                     "must specify nmask value for the multi-mask etch model");
  EXPECT_TABLE_ERROR(kw + " { nmask 2 mask (1 1) (1 2) (2 1) (2 2) (3 1)" + one + "}", kw, 1,
                     "invalid mask id in the mask table (must not be greater than the number of "
                     "masks)");
  EXPECT_TABLE_ERROR(kw + " { nmask 2 mask (1 1) (1 2) (2 1)" + one + "}", kw, 1,
                     "missing mask tables (must specify all the possible combinations of the mask "
                     "ids)");
  EXPECT_TABLE_ERROR(kw + " { nmask 2 }", kw, 1,
                     "missing mask tables (must specify all the possible combinations of the mask "
                     "ids)");
  EXPECT_TABLE_ERROR(kw + " { is_gate }", "is_gate", 1, "unknow field");
  EXPECT_TABLE_ERROR(kw + " { rho 2 }", "rho", 1, "unknow field");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } er_table { ( a 1 ) } }", "er_table", 1,
                     "unknow field in the table");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 2 } spacings { 1 2 3 } values { 1 2 3 4 5 } }", kw, 1,
                     "dimensions of widths and spacings vectors do not match with the values "
                     "vector");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } }", kw, 1, "missing necessary fields for the table");
}

TEST(CtfEtch_width_length, SquareAndLongViasAndRowOrder) {
  // Widths 0.1, 0.2 by lengths 0.1, 0.2, 0.3; tuples (length etch, width etch).
  TableReader r(
      "width_var_from_wl { widths { 0.1 0.2 } lengths { 0.1 0.2 0.3 }\n"
      "  values { (1 2) (3 4) (5 6) (7 8) (9 10) (11 12) } }");
  auto* t = r.read<CtfEtch_width_length>();
  ASSERT_NE(t, nullptr);
  // Length above width: no etch; length equal to width: the width etch on both.
  const std::vector<double> length_etch = {2, 0, 0, 7, 10, 0};
  const std::vector<double> width_etch = {2, 0, 0, 8, 10, 0};
  EXPECT_EQ(t->length_model.values, length_etch);
  EXPECT_EQ(t->width_model.values, width_etch);
  EXPECT_EQ(t->width_model.spacings, t->length_model.spacings);
  EXPECT_DOUBLE_EQ(eval(t->width_model, 0.2, 0.1), 8.0);
  // `values` is a plain vector again after the table.
  EXPECT_NE(dynamic_cast<CtfVector*>(r.ci.boundTo("values")), nullptr);
}

TEST(CtfEtch_width_length, ErrorTexts) {
  const std::string kw = "width_var_from_wl";
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } lengths { 1 } values { (1 2) (3) } }", "(", 2,
                     "expecting 2 elements (length etch and width etch) in each tuple");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } lengths { 1 } values { } }", "values", 1,
                     "expecting at least one etch value tuple");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 2 } lengths { 1 } values { (1 2) } }", kw, 1,
                     "dimensions of widths and lengths vectors do not match with the values "
                     "vector");
  EXPECT_TABLE_ERROR(kw + " { widths { 1 } values { (1 2) } }", kw, 1,
                     "missing necessary fields for the table");
  EXPECT_TABLE_ERROR(kw + " { widths { } }", "widths", 1,
                     "expecting at least one number value in the vector");
  EXPECT_TABLE_ERROR(kw + " { lengths { 3 1 } }", "lengths", 1,
                     "elements must be in ascending order");
  EXPECT_TABLE_ERROR(kw + " { spacings { 1 } }", "spacings", 1, "unknow field");
  EXPECT_TABLE_ERROR(kw + " { nmask 2 }", "nmask", 1, "unknow field in the table");
  EXPECT_TABLE_ERROR(kw + " { er_sispacing { (1 2) } }", "er_sispacing", 1, "unknow field");
}

namespace {

const char* const kSubTables =
    "width_var_from_contact_gate_s { num_tables 2.5\n"
    "  t1 { contact2contact_spacings { 1 2 } gate2contact_spacings { 0.1 0.2 0.3 }\n"
    "       values { 1 2 3 4 5 6 } }\n"
    "  t2 { values { 7 } gate2contact_spacings { 0.1 } contact2contact_spacings { 1 } }\n"
    "}";

}  // namespace

TEST(CtfEtch_contact_gate_spacing, SubTablesAndDirectForm) {
  TableReader r(kSubTables);
  auto* t = r.read<CtfEtch_contact_gate_spacing>();
  ASSERT_NE(t, nullptr);
  ASSERT_EQ(t->models.size(), 2u);
  EXPECT_EQ(t->names, (std::vector<std::string>{"t1", "t2"}));
  // First axis contact-to-contact, second gate-to-contact.
  EXPECT_DOUBLE_EQ(eval(t->models[0], 2.0, 0.1), 4.0);
  EXPECT_DOUBLE_EQ(eval(t->models[0], 1.0, 0.3), 3.0);
  EXPECT_DOUBLE_EQ(eval(t->models[1], 5.0, 5.0), 7.0);
  EXPECT_EQ(r.ci.default_processor, nullptr);

  TableReader d(
      "width_var_from_contact_gate_s { gate2contact_spacings { 0.1 0.2 } values { 1 2 3 4 }\n"
      "  contact2contact_spacings { 1 2 } }");
  auto* direct = d.read<CtfEtch_contact_gate_spacing>();
  ASSERT_EQ(direct->models.size(), 1u);
  EXPECT_DOUBLE_EQ(eval(direct->models[0], 2.0, 0.1), 3.0);
}

TEST(CtfEtch_contact_gate_spacing, ErrorTexts) {
  const std::string kw = "width_var_from_contact_gate_s";
  const std::string sub =
      " { contact2contact_spacings { 1 } gate2contact_spacings { 1 } values { 1 } } ";
  EXPECT_TABLE_ERROR(kw + " { num_tables 0.5 }", "num_tables", 1,
                     "invalid sub table number of the width_var_from_contact_gate_s table");
  EXPECT_TABLE_ERROR(kw + " { num_tables 1 t1 x }", "x", 1,
                     "expecting sub table content beginning with LEFT BRACE");
  EXPECT_TABLE_ERROR(kw + " { num_tables 1 t1 { widths { 1 } } }", "widths", 1,
                     "unknown field in the sub table");
  EXPECT_TABLE_ERROR(kw + " { num_tables 1 t1 { rho 1 } }", "rho", 1,
                     "unknown field in the sub table");
  EXPECT_TABLE_ERROR(kw + " { num_tables 1 t1 { contact2contact_spacings { 2 1 } } }",
                     "contact2contact_spacings", 1, "elements must be in ascending order");
  EXPECT_TABLE_ERROR(kw + " { num_tables 1 t1 { contact2contact_spacings { 1 2 } "
                          "gate2contact_spacings { 1 } values { 1 } } }",
                     "t1", 1,
                     "dimensions of contact2contact_spacings and gate2contact_spacings vectors "
                     "do not match with the values vector");
  EXPECT_TABLE_ERROR(kw + " { num_tables 1 t1 { values { 1 } } }", "t1", 1,
                     "missing necessary fields for the table");
  EXPECT_TABLE_ERROR(kw + " { num_tables 1 widths { 1 } }", "widths", 1,
                     "unknown field in the table");
  EXPECT_TABLE_ERROR(kw + " { num_tables 2 t1" + sub + "}", kw, 1,
                     "number of sub tables do not match with num_tables field");
  EXPECT_TABLE_ERROR(kw + " { num_tables 1 t1" + sub, "}", 4,
                     "cannot find the end of the width_var_from_contact_gate_s table");
  EXPECT_TABLE_ERROR(kw + " { values { 1 } num_tables 1 }", "num_tables", 1,
                     "num_tables field must be specified at the beginning ot the "
                     "width_var_from_contact_gate_s table");
  EXPECT_TABLE_ERROR(kw + " { values { 1 } }", kw, 1, "missing necessary fields for the table");
  EXPECT_TABLE_ERROR(kw + " { contact2contact_spacings { 1 } gate2contact_spacings { 1 2 } "
                          "values { 1 } }",
                     kw, 1,
                     "dimensions of contact2contact_spacings and gate2contact_spacings vectors "
                     "do not match with the etch values vector");
  EXPECT_TABLE_ERROR(kw + " { values { 1 }", "}", 1,
                     "cannot find the end of the width_var_from_ws table");

  // The sub-table router is gone after an error, too.
  TableReader r(kw + " { num_tables 1 t1 { rho 1 } }");
  r.error();
  EXPECT_EQ(r.ci.default_processor, nullptr);
}
