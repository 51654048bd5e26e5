#pragma once
// The sample file's number format.

#include "patterns/generic.h"

namespace KARVEN {

// Rounds every floating-point number inside `value` to the 1e-8 grid, halves away from zero;
// integers, strings and the rest stay.
void format_floats(json& value);

}  // namespace KARVEN
