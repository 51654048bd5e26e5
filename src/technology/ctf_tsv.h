#pragma once
// The `tsv` statement: a through-silicon via, which also ends the front side of the stack.

#include "technology/ctf_element.h"
#include "technology/tech_records.h"

// `tsv name { ... }` into a TSV record.
class CtfTSV : public Ctfstruct {
public:
    // Reads the statement at the cursor; throws Ctf_Syntax_Error on a bad value, an unknown
    // field or a missing required attribute.
    ElementProcessor* translate(CtfInterpreter* ci) override;

    TSV tsv;
};
