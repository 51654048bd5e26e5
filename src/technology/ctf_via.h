#pragma once
// The `via` statement: a via layer between a bottom and a top conductor.

#include "technology/ctf_element.h"
#include "technology/tech_records.h"

// `via name { ... }` into a Via record.
class CtfVia : public Ctfstruct {
public:
    // Reads the statement at the cursor; throws Ctf_Syntax_Error on a bad value, a second etch
    // table, an unknown element class or a missing resistance.
    ElementProcessor* translate(CtfInterpreter* ci) override;

    Via via;
};
