// Helpers shared by the readers of the process tables.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "technology/ctf_element.h"
#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"
#include "technology/ctf_token.h"

namespace ctf_tables {

inline constexpr const char* kUnknowClass = "unknow field in the table";
inline constexpr const char* kUnknowField = "unknow field";
inline constexpr const char* kMissingFields = "missing necessary fields for the table";
inline constexpr const char* kAtLeastOne = "expecting at least one number value in the vector";
inline constexpr const char* kAscending = "elements must be in ascending order";
inline constexpr const char* kNoTableEnd = "cannot find the end of the table";

// Throws Ctf_Syntax_Error with message at token index (-1: the current token).
[[noreturn]] inline void fail(CtfInterpreter* ci, const char* message, long index) {
    throw Ctf_Syntax_Error(ci->stream, message, index);
}

// Index of the current token.
inline long here(const CtfInterpreter* ci) {
    return static_cast<long>(ci->stream.current);
}

// Steps to the next element of a table body. Returns false on the closing "}"; otherwise reads
// the element, gives it with the index of its first token, and returns true. Throws end_message
// when the tokens run out.
inline bool nextField(CtfInterpreter* ci, ElementProcessor*& element, long& start,
                      const char* end_message = kNoTableEnd) {
    if (!ci->stream.next()) fail(ci, end_message, -1);
    if (ci->stream.token() == "}") return false;
    start = here(ci);
    element = ci->processElem();
    return true;
}

// Index of the first token of each tuple of the tuple list read from `from` to `to`.
inline std::vector<long> tuplePositions(const TokenStream& ts, long from, long to) {
    std::vector<long> at;
    bool open = false;
    for (long i = from + 1; i <= to && i < static_cast<long>(ts.tokens.size()); ++i) {
        const std::string& t = ts.tokens[static_cast<size_t>(i)];
        if (!open) {
            open = t == "{";
        } else if (t == "(") {
            at.push_back(i);
        }
    }
    return at;
}

// A number value truncated toward zero into 32 bits, saturating far outside that range.
inline int32_t truncateToInt(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// Throws kAtLeastOne for an empty vector, kAscending for a descending one, at start.
inline void checkAxis(CtfInterpreter* ci, const CtfVector& v, long start) {
    if (v.values.empty()) fail(ci, kAtLeastOne, start);
    if (!v.isAscent()) fail(ci, kAscending, start);
}

// Sets the previous default processor back when the scope is left, also by an error.
class DefaultProcessorScope {
public:
    DefaultProcessorScope(CtfInterpreter* ci, ElementProcessor* p)
        : ci_(ci), previous_(ci->default_processor) {
        ci_->default_processor = p;
    }
    ~DefaultProcessorScope() { ci_->default_processor = previous_; }
    DefaultProcessorScope(const DefaultProcessorScope&) = delete;
    DefaultProcessorScope& operator=(const DefaultProcessorScope&) = delete;

private:
    CtfInterpreter* ci_;
    ElementProcessor* previous_;
};

}  // namespace ctf_tables
