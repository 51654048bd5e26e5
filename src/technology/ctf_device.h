#pragma once
// Device model statements: `multigate` (fin transistor), `samt_vpt` (vertical pillar transistor),
// and the `gate2diffusion_cap` table of a conductor with its sub tables.

#include <string>
#include <vector>

#include "technology/ctf_element.h"
#include "technology/process_model.h"
#include "technology/tech_records.h"

// `multigate name { ... }` into a MultiGateModel.
class CtfMultiGate : public Ctfstruct {
public:
    // Reads the statement at the cursor; throws Ctf_Syntax_Error on a bad or incomplete model.
    ElementProcessor* translate(CtfInterpreter* ci) override;

    MultiGateModel model;
};

// `samt_vpt name { ... }` into a SAMT_VPT_Model.
class CtfSAMT_VPT : public Ctfstruct {
public:
    // Reads the statement at the cursor; throws Ctf_Syntax_Error on a bad or incomplete model.
    ElementProcessor* translate(CtfInterpreter* ci) override;

    SAMT_VPT_Model model;
};

// A sub table `name { caps_per_micron {..} gate2contact_spacings {..}
// contact2contact_spacings {..} gate_w|gate_pitch {..} }`, opened for any unbound token inside a
// `gate2diffusion_cap` table. With gate_w the model runs over gate width and gate-to-contact
// spacing; with gate_pitch over gate pitch and contact-to-contact spacing.
class CtfDiff_gate_table : public Ctfstruct {
public:
    CtfDiff_gate_table() { has_name = 0; }
    // The opening token is the sub table's name; leaves the cursor on "{" or throws
    // "expecting sub table content beginning with LEFT BRACE".
    void processHead(CtfInterpreter* ci) override;
    // Reads the sub table; throws Ctf_Syntax_Error on a bad or incomplete table.
    ElementProcessor* translate(CtfInterpreter* ci) override;

    GateDiffCapModel model;
};

// `gate2diffusion_cap [name] { num_tables n  sub table ... }`.
class CtfGate2Diff_cap : public Ctfstruct {
public:
    // Reads the table; throws Ctf_Syntax_Error on a bad count or sub table.
    ElementProcessor* translate(CtfInterpreter* ci) override;

    std::vector<GateDiffCapModel> models;  // one per sub table, in order
    std::vector<std::string> names;        // the sub tables' names
};
