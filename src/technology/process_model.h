// Width-and-spacing process tables: the plain etch table, its derived tables, sums of tables, the
// multi-mask table, and the raised-diffusion record. Owned by raw pointer in their layer records
// and copied by clone().
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

// A value over (width, spacing), or a plain constant.
class EtchModel {
public:
    std::vector<double> widths;    // first axis, ascending
    std::vector<double> spacings;  // second axis, ascending
    std::vector<double> values;    // values[i * spacings.size() + j], i the width index
    double constant = 0.0;
    int32_t is_constant = 0;
    int32_t add_constant = 0;

    EtchModel() = default;
    // A constant model holding c.
    explicit EtchModel(double c) : constant(c), is_constant(1) {}
    virtual ~EtchModel() = default;

    // Bilinear lookup clamped to the axes; writes out and returns 1, returns 0 on a malformed table
    // or a degenerate bracket.
    virtual int evalEtch(double width, double spacing, double& out) const;
    // Back to the empty, non-constant state.
    virtual void reset();
    // A deep copy; the caller owns it.
    virtual EtchModel* clone() const;

    // Like evalEtch but Lagrange through the whole row along spacing; returns 0 where evalEtch
    // does, and on repeated spacing values inside the axis.
    int evalEtchwPoly(double width, double spacing, double& out) const;
    // Bracket of x on axis: low is the last index not above x (at least 0), high = low + 1 or the
    // last index. Returns 0 (low = high = -1) for an empty axis, else 1.
    static int searchGrid(const std::vector<double>& axis, double x, int& low, int& high);
    // 1 when all three vectors are non-empty and size(values) = size(widths) * size(spacings).
    int modelOK() const;
    // The larger of the last width and the last spacing; -1 when an axis is empty.
    double getMaxFeatureSize() const;
    // 1 when an axis is empty or a value lies outside its axis by more than 1e-9.
    int outOfRange(double width, double spacing) const;

protected:
    double at(size_t i, size_t j) const { return values[i * spacings.size() + j]; }
};

// Inter-layer dielectric thickness change over effective width and spacing.
class ILDModel : public EtchModel {
public:
    std::string dielectric;      // the dielectric layer it changes
    int32_t dielectric_id = -1;  // that layer's index once the stack is known, -1 before

    void reset() override;
    ILDModel* clone() const override;
};

// Gate-to-diffusion capacitance per micron over gate width (or pitch) and spacing.
class GateDiffCapModel : public EtchModel {
public:
    int32_t by_gate_width = 1;  // 1: first axis is gate width; 0: first axis is gate pitch

    void reset() override;
    GateDiffCapModel* clone() const override;
};

// The sum of several etch tables; owns its members.
class EtchModelSet : public EtchModel {
public:
    std::vector<EtchModel*> models;

    EtchModelSet() = default;
    EtchModelSet(const EtchModelSet& other);
    EtchModelSet& operator=(const EtchModelSet& other);
    ~EtchModelSet() override;

    // Takes ownership of model (ignored when null).
    void pushEtchModel(EtchModel* model);
    // Sum of the members that succeed (0 with none); always returns 1.
    int evalEtch(double width, double spacing, double& out) const override;
    // Deletes the members.
    void reset() override;
    EtchModelSet* clone() const override;
};

using MaskPair = std::pair<int32_t, int32_t>;

// Etch tables selected by the mask ids of a wire and its neighbour. Owns the tables in `owned`;
// `models` may map several pairs to one table.
class SyntheticEtchModel {
public:
    int32_t nmask = 0;
    std::vector<EtchModel*> owned;
    std::map<MaskPair, EtchModel*> models;
    double max_feature = 0.0;  // largest last spacing among the tables of real mask pairs
    int32_t rule = 1;

    SyntheticEtchModel() = default;
    SyntheticEtchModel(const SyntheticEtchModel& other);
    SyntheticEtchModel& operator=(const SyntheticEtchModel& other);
    virtual ~SyntheticEtchModel();

    // Deletes every table and clears the fields.
    virtual void reset();
    // A new object that takes over all tables; this one is left empty. The caller owns the result.
    virtual SyntheticEtchModel* move();
    // A deep copy that keeps shared tables shared; the caller owns it.
    virtual SyntheticEtchModel* clone() const;

    // Takes ownership of model and stores it under each pair; returns 0 if a pair was taken already
    // (that pair keeps its old table), else 1.
    int regEtchModel(EtchModel* model, const std::set<MaskPair>& pairs);
    // 1 if an id exceeds nmask; -1 if a combination of real ids is missing; else 0.
    int checkMaskValidity() const;
    // Fills the missing default pairs (0,0), (0,1), (1,0) from (1,2), (2,1), (1,2).
    void settingDefaultModels();
    // Evaluates the table of (mask_a, mask_b); returns 0 when there is none or it fails.
    int evalEtch(double width, double spacing, int32_t mask_a, int32_t mask_b, double& out) const;
    // Hands out the table of (0,0), else of (1,2), and forgets it (all its pairs); null when
    // neither exists. The caller owns the result.
    EtchModel* disColor();

private:
    void copyFrom(const SyntheticEtchModel& other);
};

// Raised source/drain diffusion: etch and spacing to gate, with per-layer overrides.
class RaisedDiffModel {
public:
    int32_t etch_flag = 0;
    double etch = 0.0;
    double conformal_er = -1.0;
    double thickness = -1.0;
    double smin = -1.0;
    std::unordered_map<std::string, double> raiseddiffu_etch_table;
    std::unordered_map<std::string, double> raiseddiffu2gate_smin_table;

    virtual ~RaisedDiffModel() = default;
    // Back to the defaults.
    virtual void reset();
    // A copy; the caller owns it.
    virtual RaisedDiffModel* clone() const;

    // The etch for the named layer: its table entry, else `etch`.
    double getEtch(const std::string& layer) const;
    // The spacing to gate for the named layer: its table entry, else `smin`.
    double getSmin(const std::string& layer) const;
};
