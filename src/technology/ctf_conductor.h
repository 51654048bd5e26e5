#pragma once
// The `conductor` statement: one metal or device layer with its geometry, resistance and the
// process tables that change its width and thickness.

#include <cstdint>

#include "technology/ctf_element.h"
#include "technology/tech_records.h"

// `conductor name { ... }` into a Conductor record.
class CtfConductor : public Ctfstruct {
public:
    // Reads the statement at the cursor; throws Ctf_Syntax_Error on a bad value, a table that
    // the layer already has or may not have, an unknown element class, or an inconsistent layer.
    ElementProcessor* translate(CtfInterpreter* ci) override;

    Conductor conductor;

private:
    void readNumber(CtfInterpreter* ci, const CtfNumberAttri& a, long start);
    void readString(CtfInterpreter* ci, const CtfStringAttri& a);
    // Takes a process table; returns false when the element is none of the accepted tables.
    bool readTable(CtfInterpreter* ci, ElementProcessor* element, long start);
    void addConstantWidthVariation(double value, bool to_cap, bool to_res);
    void deriveThicknessBounds(CtfInterpreter* ci, long keyword_at);
    void finish(CtfInterpreter* ci, long keyword_at);

    // State of the statement being read.
    std::int32_t sampling_ = 0;       // tables only yield a value, no model is kept
    std::int32_t sampling_mode_ = 0;  // 0 first value, 1 mean, else the mean of the first block
    bool rho_given_ = false;
    int resistance_tables_ = 0;
    double rho_sample_ = -1.0;
    double rpsq_sample_ = -1.0;
    bool has_density_boxes_ = false;
    bool polynomial_has_density_bounds_ = false;
};
