#pragma once
// The `dielectric` statement: a planar layer, a conformal coat on named conductors, or both.

#include "technology/ctf_element.h"
#include "technology/tech_records.h"

// `dielectric name { ... }` into a ConformalLayer record.
class CtfDielectric : public Ctfstruct {
public:
    // Reads the statement at the cursor; throws Ctf_Syntax_Error on a bad value, an unknown
    // element class or an inconsistent layer.
    ElementProcessor* translate(CtfInterpreter* ci) override;

    ConformalLayer layer;
};
