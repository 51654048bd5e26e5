#pragma once
// The token stream of a CTF file: tokens with their (line, position) and the comments that stand
// before them, plus the cursor that every element reader moves.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using CtfContext = std::pair<std::uint64_t, std::uint64_t>;  // (line, byte position), both from 0

struct TokenStream {
    std::vector<std::string> tokens;
    std::vector<CtfContext> contexts;
    // comments[i]: comment lines before token i; one extra entry holds comments after the last.
    std::vector<std::vector<std::string>> comments;
    std::uint64_t current = 0;
    std::int32_t at_end = 0;

    // Steps to the next token and returns true; at the last token (or with no tokens) sets
    // at_end and returns false without moving.
    bool next() {
        if (current + 1 >= tokens.size()) {
            at_end = 1;
            return false;
        }
        ++current;
        return true;
    }

    // Returns the current token's text, or an empty text when the cursor is off the stream.
    const std::string& token() const {
        static const std::string none;
        return current < tokens.size() ? tokens[current] : none;
    }

    // Returns the token at `index`, or an empty text when there is none.
    const std::string& tokenAt(std::uint64_t index) const {
        static const std::string none;
        return index < tokens.size() ? tokens[index] : none;
    }

    // Returns the (line, position) of the token at `index`, or (0, 0) when there is none.
    CtfContext contextAt(std::uint64_t index) const {
        return index < contexts.size() ? contexts[index] : CtfContext{0, 0};
    }
};
