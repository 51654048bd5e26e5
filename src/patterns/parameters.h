#pragma once
// Checks of the parameter file before anything is solved: the top level, and every key of the
// "Random" object against its type and a sane range. Checks that need the stack are made by the
// family itself.

#include <string>
#include <vector>

#include "patterns/generic.h"

namespace KARVEN {

// Upper limits of the sample count and of the two windows (in the stack's length unit): beyond
// them a run would not end or not fit in memory.
inline constexpr double kMaxSamples = 10000000;
inline constexpr double kMaxWindow = 10000;
// The deepest nesting of arrays and objects accepted in a parameter file or a structure line.
inline constexpr size_t kMaxNesting = 16;

// Returns true when `value` nests arrays and objects at most `limit` levels deep. Walks without
// recursion, so that a hostile document cannot overflow the stack here; the library copies and
// writes values recursively, so deeper documents must be refused before they are used.
bool nestingWithin(const json& value, size_t limit);

// Returns `value` as compact JSON for a message: at most 80 characters, and a nested array or
// object only by its type, since a deeply nested value could not be written out safely.
std::string shortJson(const json& value);

// Returns the entry of `known` nearest to `name` by edit distance (the first on a tie), or ""
// when `known` is empty.
std::string closestName(const std::string& name, const std::vector<std::string>& known);

// Checks the whole parameter document read from `path`: it must be an object whose values are
// objects. Keys that name no registered family are reported on standard error with the closest
// family name. Throws FatalError naming the problem.
void checkParameterFile(const json& params, const std::string& path);

// Checks the keys of the "Random" object: each known key against its type and range, unknown
// keys as a warning on standard error with the closest known key. Throws FatalError naming the
// key, the value and what is allowed.
void checkRandomParameters(const json& params);

}  // namespace KARVEN
