// Process tables that stand inside conductor, dielectric, via and tsv statements. Each reads one
// table element into the process model it owns; the enclosing statement clones the model out
// before the next element with the same keyword is read. All errors are Ctf_Syntax_Error: value
// errors point at the offending element, end-of-table errors at the table's keyword.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "technology/ctf_element.h"
#include "technology/process_model.h"
#include "technology/process_model_resistance.h"
#include "technology/process_model_thickness.h"

// Which extraction a table serves, from its name or a flag element.
struct CtfUseSelection {
    int32_t capacitive_only = 0;
    int32_t resistive_only = 0;
    int32_t etch_from_top = 0;

    // Sets the flag named by word; returns false when word names none.
    bool select(const std::string& word);
};

// `keyword [name] { widths {..} spacings {..} values {..} }`, any order, into an EtchModel.
class CtfEtch_width_spacing_template : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    EtchModel model;

protected:
    // Clears what a derived class keeps from its last read.
    virtual void clearState() {}
    // Takes an element that is not one of the three vectors; returns false to reject it.
    virtual bool acceptField(CtfInterpreter* ci, ElementProcessor* element, long start);
    // Checks after the common end rules; the cursor may be moved only by throwing.
    virtual void finish(CtfInterpreter* ci, long keyword_at);
};

// `thickness_var_from_ws [capacitive_only|resistive_only] { ... }`.
class CtfThickness_width_spacing : public CtfEtch_width_spacing_template {
public:
    CtfUseSelection use;

protected:
    void clearState() override;
    void finish(CtfInterpreter* ci, long keyword_at) override;
};

// `rho_vs_width_and_spacing`: every value must be above 0.
class CtfRHO_width_spacing : public CtfEtch_width_spacing_template {
protected:
    void finish(CtfInterpreter* ci, long keyword_at) override;
};

// `side_tan_vs_si_width_and_spacing`.
class CtfSideTan_width_spacing : public CtfEtch_width_spacing_template {};

// `spacer_er_from_gate_ws`.
class CtfSpacer_er_vs_width_spacing : public CtfEtch_width_spacing_template {};

// `mask ( a b ) ( c d ) ... { ... }`: one etch table for a set of mask id pairs.
class CtfMaskEtchTable : public CtfEtch_width_spacing_template {
public:
    // Reads the keyword and the id pairs, leaving the cursor on "{".
    void processHead(CtfInterpreter* ci) override;

    std::set<MaskPair> pairs;
};

// `width_var_from_ws [name] { ... }`: a single etch table, or with `nmask` and `mask` tables a
// multi-mask one.
class CtfEtch_width_spacing : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    EtchModel model;                // the single-mask table
    SyntheticEtchModel mask_model;  // the multi-mask table
    int32_t is_multi_mask = 0;
    CtfUseSelection use;
};

// `width_var_from_wl [name] { widths {..} lengths {..} values { (l w) .. } }` for vias.
class CtfEtch_width_length : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    EtchModel length_model;  // widths x lengths, the first value of each tuple
    EtchModel width_model;   // widths x lengths, the second value of each tuple
};

// A sub table `name { values {..} gate2contact_spacings {..} contact2contact_spacings {..} }`,
// opened by its parent for any unbound token. First axis contact2contact_spacings, second axis
// gate2contact_spacings.
class CtfContact_gate_table : public Ctfstruct {
public:
    CtfContact_gate_table() { has_name = 0; }
    // The opening token is the sub table's name; the cursor ends on "{".
    void processHead(CtfInterpreter* ci) override;
    ElementProcessor* translate(CtfInterpreter* ci) override;

    EtchModel model;
};

// `width_var_from_contact_gate_s [name] { num_tables n  sub tables }`, or directly one table of
// the three vectors.
class CtfEtch_contact_gate_spacing : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    std::vector<EtchModel> models;   // one per sub table, or the single direct table
    std::vector<std::string> names;  // the sub tables' names (empty for the direct table)
};

// `thickness_var_from_d [name] { (density change) .. }`.
class CtfThickness_density : public CtfTuplevector {
public:
    CtfThickness_density() { has_name = 1; }
    ElementProcessor* translate(CtfInterpreter* ci) override;

    ThicknessDensityModel model;
    CtfUseSelection use;
};

// `bottom_thickness_var_from_si_width [name] { (width change) .. }`; widths strictly ascending.
class CtfThickness_bottom_width : public CtfTuplevector {
public:
    CtfThickness_bottom_width() { has_name = 1; }
    ElementProcessor* translate(CtfInterpreter* ci) override;

    ThicknessDensityModel model;  // table holds (width, change)
    CtfUseSelection use;
};

// `densitybox_weight_factor [name] { (size weight) .. }`, one to five boxes.
class CtfDensity_box : public CtfTuplevector {
public:
    CtfDensity_box() { has_name = 1; }
    ElementProcessor* translate(CtfInterpreter* ci) override;

    std::vector<DensityBox> boxes;
};

// `rpsq_vs_si_width [name] { (width rpsq) .. }`; widths strictly ascending.
class CtfRPSQ_SI_width : public CtfTuplevector {
public:
    CtfRPSQ_SI_width() { has_name = 1; }
    ElementProcessor* translate(CtfInterpreter* ci) override;

    RPSQSIWidthModel model;
};

// `rpv_vs_area [name] { (area rpv) .. }`, stored sorted by area.
class CtfRPV_Area : public CtfTuplevector {
public:
    CtfRPV_Area() { has_name = 1; }
    ElementProcessor* translate(CtfInterpreter* ci) override;

    ViaRPVAreaModel model;
};

// `thickness_vs_density_and_width [name] { widths|siwidths densities|sidensities values }`;
// values run along width fastest, one row per density.
class CtfThickness_density_width : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    ThicknessDensityWidthModel model;
    int32_t si_width = 0;
    int32_t si_density = 0;
    CtfUseSelection use;
};

// `thickness_var_from_polynomial [name] { ... }`.
class CtfThickness_polynomial : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    ThicknessPolynomialModel model;
    int32_t valid = 0;               // set when the table was read completely
    int32_t has_density_bounds = 0;  // a density_bounds_vs_width table was given
};

// `ild_thickness_var_from_effective_ws [name] { dielectric X  widths spacings thickness_changes }`.
class CtfILD_thickness : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    ILDModel model;
};

// `rho_vs_si_width_and_thickness [name] { width {..} thickness {..} values {..} }`.
class CtfRHO_SI_width_thickness : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    EtchModel model;  // widths = width, spacings = thickness
};

// `rpsq_vs_width_and_spacing [name] { widths and/or spacings, values }`.
class CtfRPSQ_width_spacing : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    RPSQWidthSpacingModel model;
};

// `rpv_vs_width_and_length [name] { widths lengths values }`.
class CtfRPV_width_length : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;

    PRVWidthLength model;
};

// `ceff_vs_frq_and_spacing [name] { frq spacings values }`: checked, then dropped.
class CtfTSVCeffTable : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
};
