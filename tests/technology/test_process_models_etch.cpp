#include <gtest/gtest.h>

#include <memory>

#include "technology/process_model.h"

namespace {

// Two widths by three spacings, every entry different, so that a transposed read shows.
// Row w=1: 1 2 3; row w=2: 10 20 30.
EtchModel asymmetricTable() {
  EtchModel m;
  m.widths = {1.0, 2.0};
  m.spacings = {10.0, 20.0, 30.0};
  m.values = {1.0, 2.0, 3.0, 10.0, 20.0, 30.0};
  return m;
}

double eval(const EtchModel& m, double w, double s) {
  double out = -999.0;
  EXPECT_EQ(m.evalEtch(w, s, out), 1) << "w=" << w << " s=" << s;
  return out;
}

}  // namespace

TEST(EtchModel, RowsRunAlongWidthAndSpacingVariesFastest) {
  const EtchModel m = asymmetricTable();
  EXPECT_DOUBLE_EQ(eval(m, 1.0, 20.0), 2.0);
  EXPECT_DOUBLE_EQ(eval(m, 2.0, 10.0), 10.0);
  EXPECT_DOUBLE_EQ(eval(m, 2.0, 30.0), 30.0);
  // Bilinear middle of the cell (w 1..2, s 20..30): mean of 2, 3, 20, 30.
  EXPECT_DOUBLE_EQ(eval(m, 1.5, 25.0), 13.75);
  // Along width only: a quarter of the way from 1 to 10.
  EXPECT_DOUBLE_EQ(eval(m, 1.25, 10.0), 3.25);
}

TEST(EtchModel, ClampsToTheEdgesInsteadOfExtrapolating) {
  const EtchModel m = asymmetricTable();
  EXPECT_DOUBLE_EQ(eval(m, 0.1, 1.0), 1.0);     // below both axes
  EXPECT_DOUBLE_EQ(eval(m, 7.0, 99.0), 30.0);   // above both axes
  EXPECT_DOUBLE_EQ(eval(m, 0.1, 25.0), 2.5);    // width below, spacing inside
  EXPECT_DOUBLE_EQ(eval(m, 9.0, 15.0), 15.0);   // width above, spacing inside
  EXPECT_DOUBLE_EQ(eval(m, 1.5, -4.0), 5.5);    // spacing below, width inside
}

TEST(EtchModel, ExactAxisValueTakesThatRowAsLowBracket) {
  // The bracket above w=2 is (2, 2+5e-11), too narrow to divide by; the bracket below it would be
  // fine. A lookup at exactly 2 must pick the upper one and fail.
  EtchModel m;
  m.widths = {1.0, 2.0, 2.0 + 5e-11};
  m.spacings = {1.0};
  m.values = {10.0, 20.0, 40.0};
  double out = -1.0;
  EXPECT_EQ(m.evalEtch(2.0, 1.0, out), 0);
  EXPECT_DOUBLE_EQ(out, -1.0);
  EXPECT_DOUBLE_EQ(eval(m, 1.5, 1.0), 15.0);
  EXPECT_DOUBLE_EQ(eval(m, 3.0, 1.0), 40.0);
}

TEST(EtchModel, SingleCellIsItsValueEverywhere) {
  EtchModel m;
  m.widths = {5.0};
  m.spacings = {7.0};
  m.values = {0.3};
  EXPECT_DOUBLE_EQ(eval(m, 0.0, 0.0), 0.3);
  EXPECT_DOUBLE_EQ(eval(m, 5.0, 7.0), 0.3);
  EXPECT_DOUBLE_EQ(eval(m, 100.0, -3.0), 0.3);
  double out = 0.0;
  EXPECT_EQ(m.evalEtchwPoly(6.0, 8.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 0.3);
}

TEST(EtchModel, ConstantAndOffset) {
  EtchModel c(0.25);
  EXPECT_DOUBLE_EQ(eval(c, 1.0, 1.0), 0.25);  // no axes needed

  EtchModel m = asymmetricTable();
  m.constant = 0.5;
  m.add_constant = 1;
  EXPECT_DOUBLE_EQ(eval(m, 1.0, 20.0), 2.5);
}

TEST(EtchModel, MalformedTablesFailAndKeepTheCallersValue) {
  EtchModel m = asymmetricTable();
  m.values.pop_back();  // 2 widths x 3 spacings with 5 values
  EXPECT_EQ(m.modelOK(), 0);
  double out = 42.0;
  EXPECT_EQ(m.evalEtch(1.0, 10.0, out), 0);
  EXPECT_EQ(m.evalEtchwPoly(1.0, 10.0, out), 0);
  EXPECT_DOUBLE_EQ(out, 42.0);

  EtchModel empty;
  EXPECT_EQ(empty.modelOK(), 0);
  EXPECT_EQ(empty.evalEtch(1.0, 1.0, out), 0);
  EXPECT_EQ(asymmetricTable().modelOK(), 1);
}

TEST(EtchModel, FeatureSizeAndRange) {
  EXPECT_DOUBLE_EQ(asymmetricTable().getMaxFeatureSize(), 30.0);
  EtchModel wide = asymmetricTable();
  wide.widths = {1.0, 50.0};
  EXPECT_DOUBLE_EQ(wide.getMaxFeatureSize(), 50.0);
  EXPECT_DOUBLE_EQ(EtchModel().getMaxFeatureSize(), -1.0);

  const EtchModel m = asymmetricTable();
  EXPECT_EQ(m.outOfRange(1.5, 20.0), 0);
  EXPECT_EQ(m.outOfRange(2.0 + 5e-10, 30.0 + 5e-10), 0);  // within the tolerance
  EXPECT_EQ(m.outOfRange(2.0 + 2e-9, 20.0), 1);
  EXPECT_EQ(m.outOfRange(1.5, 10.0 - 2e-9), 1);
  EXPECT_EQ(EtchModel().outOfRange(1.0, 1.0), 1);
}

TEST(EtchModel, SearchGridBrackets) {
  const std::vector<double> axis = {1.0, 2.0, 3.0};
  struct Case {
    double x;
    int low, high;
  };
  for (const Case& c : {Case{0.0, 0, 1}, Case{1.0, 0, 1}, Case{2.0, 1, 2}, Case{2.5, 1, 2},
                        Case{3.0, 2, 2}, Case{9.0, 2, 2}}) {
    int lo = -7, hi = -7;
    EXPECT_EQ(EtchModel::searchGrid(axis, c.x, lo, hi), 1);
    EXPECT_EQ(lo, c.low) << "x=" << c.x;
    EXPECT_EQ(hi, c.high) << "x=" << c.x;
  }
  int lo, hi;
  EXPECT_EQ(EtchModel::searchGrid({5.0}, 1.0, lo, hi), 1);
  EXPECT_EQ(lo, 0);
  EXPECT_EQ(hi, 0);
  EXPECT_EQ(EtchModel::searchGrid({}, 1.0, lo, hi), 0);
}

TEST(EtchModel, PolynomialLookupAlongSpacing) {
  // Row w=1 holds s^2, row w=3 holds 2 s^2: a quadratic is reproduced exactly by the polynomial
  // through three points, while the plain lookup is linear between neighbours.
  EtchModel m;
  m.widths = {1.0, 3.0};
  m.spacings = {0.0, 1.0, 2.0};
  m.values = {0.0, 1.0, 4.0, 0.0, 2.0, 8.0};
  double out = 0.0;
  ASSERT_EQ(m.evalEtchwPoly(1.0, 1.5, out), 1);
  EXPECT_NEAR(out, 2.25, 1e-12);
  EXPECT_DOUBLE_EQ(eval(m, 1.0, 1.5), 2.5);
  ASSERT_EQ(m.evalEtchwPoly(2.0, 1.5, out), 1);  // halfway between 2.25 and 4.5
  EXPECT_NEAR(out, 3.375, 1e-12);
  ASSERT_EQ(m.evalEtchwPoly(1.0, 5.0, out), 1);  // edge value, no extrapolated parabola
  EXPECT_DOUBLE_EQ(out, 4.0);
  ASSERT_EQ(m.evalEtchwPoly(3.0, -1.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 0.0);
}

TEST(EtchModelSet, SumsTheMembersThatSucceed) {
  EtchModelSet set;
  double out = -1.0;
  EXPECT_EQ(set.evalEtch(1.0, 1.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 0.0);

  set.pushEtchModel(new EtchModel(0.1));
  set.pushEtchModel(new EtchModel(asymmetricTable()));
  auto* broken = new EtchModel(asymmetricTable());
  broken->values.resize(2);
  set.pushEtchModel(broken);
  set.pushEtchModel(nullptr);
  EXPECT_EQ(set.evalEtch(1.0, 20.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 2.1);

  std::unique_ptr<EtchModel> copy(set.clone());
  set.reset();
  EXPECT_TRUE(set.models.empty());
  EXPECT_EQ(copy->evalEtch(2.0, 30.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 30.1);
}

TEST(EtchModel, DerivedClonesKeepTheirTypeAndFields) {
  ILDModel ild;
  ild.widths = {1.0};
  ild.spacings = {1.0};
  ild.values = {0.05};
  ild.dielectric = "IMD2";
  ild.dielectric_id = 3;
  std::unique_ptr<EtchModel> c(static_cast<const EtchModel&>(ild).clone());
  auto* ild_copy = dynamic_cast<ILDModel*>(c.get());
  ASSERT_NE(ild_copy, nullptr);
  EXPECT_EQ(ild_copy->dielectric, "IMD2");
  EXPECT_EQ(ild_copy->dielectric_id, 3);
  ild.reset();
  EXPECT_TRUE(ild.dielectric.empty());
  EXPECT_EQ(ild.dielectric_id, -1);
  EXPECT_EQ(ild_copy->values.size(), 1u);

  GateDiffCapModel cap;
  cap.by_gate_width = 0;
  std::unique_ptr<EtchModel> d(static_cast<const EtchModel&>(cap).clone());
  auto* cap_copy = dynamic_cast<GateDiffCapModel*>(d.get());
  ASSERT_NE(cap_copy, nullptr);
  EXPECT_EQ(cap_copy->by_gate_width, 0);
  cap.reset();
  EXPECT_EQ(cap.by_gate_width, 1);
}

// ---------------------------------------------------------------------------------------------
// Multi-mask tables

namespace {

double evalMask(const SyntheticEtchModel& m, int a, int b) {
  double out = -999.0;
  EXPECT_EQ(m.evalEtch(1.0, 1.0, a, b, out), 1) << a << "," << b;
  return out;
}

// nmask 2: (1,1) and (2,2) share constant 1, (1,2) is 2, (2,1) is 3.
SyntheticEtchModel twoMasks() {
  SyntheticEtchModel m;
  m.nmask = 2;
  EXPECT_EQ(m.regEtchModel(new EtchModel(1.0), {{1, 1}, {2, 2}}), 1);
  EXPECT_EQ(m.regEtchModel(new EtchModel(2.0), {{1, 2}}), 1);
  EXPECT_EQ(m.regEtchModel(new EtchModel(3.0), {{2, 1}}), 1);
  return m;
}

}  // namespace

TEST(SyntheticEtchModel, MaskValidity) {
  SyntheticEtchModel m = twoMasks();
  EXPECT_EQ(m.checkMaskValidity(), 0);

  SyntheticEtchModel missing;
  missing.nmask = 2;
  missing.regEtchModel(new EtchModel(1.0), {{1, 1}, {1, 2}, {2, 1}, {0, 0}});
  EXPECT_EQ(missing.checkMaskValidity(), -1);  // (2,2) absent; (0,0) does not count

  SyntheticEtchModel too_big = twoMasks();
  too_big.regEtchModel(new EtchModel(1.0), {{3, 1}});
  EXPECT_EQ(too_big.checkMaskValidity(), 1);

  SyntheticEtchModel empty;
  empty.nmask = 2;
  EXPECT_EQ(empty.checkMaskValidity(), -1);
  empty.nmask = 0;
  EXPECT_EQ(empty.checkMaskValidity(), 0);
}

TEST(SyntheticEtchModel, RegisteringATakenPairFails) {
  SyntheticEtchModel m = twoMasks();
  EXPECT_EQ(m.regEtchModel(new EtchModel(9.0), {{1, 2}, {0, 1}}), 0);
  EXPECT_DOUBLE_EQ(evalMask(m, 1, 2), 2.0);  // the first table stays
  EXPECT_DOUBLE_EQ(evalMask(m, 0, 1), 9.0);  // the free pair is still taken
  double out = 0.0;
  EXPECT_EQ(m.evalEtch(1.0, 1.0, 0, 0, out), 0);
}

TEST(SyntheticEtchModel, MaxFeatureComesFromRealPairsOnly) {
  SyntheticEtchModel m;
  auto* a = new EtchModel(asymmetricTable());  // last spacing 30
  auto* b = new EtchModel(asymmetricTable());
  b->spacings.back() = 50.0;
  auto* c = new EtchModel(asymmetricTable());
  c->spacings.back() = 40.0;
  m.regEtchModel(b, {{0, 1}});
  EXPECT_DOUBLE_EQ(m.max_feature, 0.0);
  m.regEtchModel(a, {{1, 2}});
  EXPECT_DOUBLE_EQ(m.max_feature, 30.0);
  m.regEtchModel(c, {{2, 0}, {2, 1}});
  EXPECT_DOUBLE_EQ(m.max_feature, 40.0);
}

TEST(SyntheticEtchModel, DefaultPairsFollowTheCrossMaskTables) {
  SyntheticEtchModel m = twoMasks();
  m.settingDefaultModels();
  EXPECT_DOUBLE_EQ(evalMask(m, 0, 0), 2.0);  // from (1,2)
  EXPECT_DOUBLE_EQ(evalMask(m, 0, 1), 3.0);  // from (2,1)
  EXPECT_DOUBLE_EQ(evalMask(m, 1, 0), 2.0);  // from (1,2)
  EXPECT_DOUBLE_EQ(evalMask(m, 2, 2), 1.0);

  SyntheticEtchModel given = twoMasks();
  given.regEtchModel(new EtchModel(7.0), {{0, 0}});
  given.settingDefaultModels();
  EXPECT_DOUBLE_EQ(evalMask(given, 0, 0), 7.0);  // an explicit default is kept
  EXPECT_DOUBLE_EQ(evalMask(given, 1, 0), 2.0);
}

TEST(SyntheticEtchModel, DisColorHandsOutTheDefaultTable) {
  SyntheticEtchModel m = twoMasks();
  m.settingDefaultModels();
  std::unique_ptr<EtchModel> plain(m.disColor());
  ASSERT_NE(plain, nullptr);
  double out = 0.0;
  ASSERT_EQ(plain->evalEtch(1.0, 1.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 2.0);
  EXPECT_EQ(m.evalEtch(1.0, 1.0, 0, 0, out), 0);
  EXPECT_DOUBLE_EQ(evalMask(m, 2, 1), 3.0);  // other tables remain

  SyntheticEtchModel no_default;
  no_default.nmask = 2;
  no_default.regEtchModel(new EtchModel(1.0), {{1, 1}});
  EXPECT_EQ(no_default.disColor(), nullptr);

  SyntheticEtchModel explicit_default = twoMasks();
  explicit_default.regEtchModel(new EtchModel(7.0), {{0, 0}});
  std::unique_ptr<EtchModel> seven(explicit_default.disColor());
  ASSERT_EQ(seven->evalEtch(0.0, 0.0, out), 1);
  EXPECT_DOUBLE_EQ(out, 7.0);
}

TEST(SyntheticEtchModel, CloneIsDeepAndKeepsSharing) {
  SyntheticEtchModel m = twoMasks();
  m.rule = 0;
  std::unique_ptr<SyntheticEtchModel> copy(m.clone());
  EXPECT_EQ(copy->nmask, 2);
  EXPECT_EQ(copy->rule, 0);
  ASSERT_EQ(copy->owned.size(), 3u);
  EXPECT_EQ(copy->models.at({1, 1}), copy->models.at({2, 2}));
  for (const auto& [pair, model] : copy->models) EXPECT_NE(model, m.models.at(pair));

  m.models.at({1, 1})->constant = 5.0;
  EXPECT_DOUBLE_EQ(evalMask(m, 2, 2), 5.0);
  EXPECT_DOUBLE_EQ(evalMask(*copy, 2, 2), 1.0);

  SyntheticEtchModel assigned;
  assigned.regEtchModel(new EtchModel(8.0), {{1, 1}});
  assigned = *copy;
  EXPECT_DOUBLE_EQ(evalMask(assigned, 1, 2), 2.0);

  std::unique_ptr<SyntheticEtchModel> taken(copy->move());
  EXPECT_TRUE(copy->models.empty());
  EXPECT_TRUE(copy->owned.empty());
  EXPECT_DOUBLE_EQ(evalMask(*taken, 2, 1), 3.0);
}

TEST(RaisedDiffModel, LayerEntriesOverrideTheDefaults) {
  RaisedDiffModel m;
  m.etch = 0.01;
  m.smin = 0.05;
  m.raiseddiffu_etch_table["OD2"] = 0.02;
  m.raiseddiffu2gate_smin_table["OD"] = 0.07;
  EXPECT_DOUBLE_EQ(m.getEtch("OD2"), 0.02);
  EXPECT_DOUBLE_EQ(m.getEtch("OD"), 0.01);
  EXPECT_DOUBLE_EQ(m.getSmin("OD"), 0.07);
  EXPECT_DOUBLE_EQ(m.getSmin("OD2"), 0.05);
  std::unique_ptr<RaisedDiffModel> c(m.clone());
  m.reset();
  EXPECT_DOUBLE_EQ(m.getSmin("OD"), -1.0);
  EXPECT_DOUBLE_EQ(c->getSmin("OD"), 0.07);
}
