// Reading one element from CTF text, the error and warning texts expected at a word of it, and
// a comparison of number lists.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/pargument.h"
#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"

namespace tech_test {

// An interpreter with all processors, loaded with `text`, cursor on the first token.
class Reader {
public:
    explicit Reader(const std::string& text) {
        ci.initProcessors();
        std::istringstream in(text);
        ci.lexer(in);
    }

    // The processor that read the element at the cursor as T; null for another class.
    template <class T>
    T* read() {
        return dynamic_cast<T*>(ci.processElem());
    }

    // The error text of reading the element at the cursor, or "no error".
    std::string error() {
        try {
            ci.processElem();
        } catch (const Ctf_Error& e) {
            return e.text;
        }
        return "no error";
    }

    CtfInterpreter ci;
};

inline std::string errorOf(const std::string& text) {
    return Reader(text).error();
}

// The syntax error text for `message` at `token` on 1-based `line`, 0-based `pos`.
inline std::string at(const std::string& token, int line, int pos, const std::string& message) {
    return "CTF error at \"" + token + "\", line: " + std::to_string(line) +
           ", pos: " + std::to_string(pos) + ", " + message + ".\n";
}

// The syntax error text for `message` at the nth (from 1) whole-word occurrence of `word` in
// `text`, with line and position counted by walking the text itself.
inline std::string errorAt(const std::string& text, const std::string& word, int nth,
                           const std::string& message) {
    auto wordByte = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '+' || c == '-' ||
               c == '.';
    };
    const bool word_like = wordByte(word[0]);
    std::size_t found = std::string::npos;
    for (std::size_t from = 0; nth > 0;) {
        found = text.find(word, from);
        if (found == std::string::npos) return "word not in text: " + word;
        from = found + 1;
        const std::size_t end = found + word.size();
        if (!word_like || ((found == 0 || !wordByte(text[found - 1])) &&
                           (end >= text.size() || !wordByte(text[end]))))
            --nth;
    }
    const std::size_t line_start = text.rfind('\n', found) + 1;  // 0 on the first line
    const auto line = 1 + std::count(text.begin(), text.begin() + found, '\n');
    return at(word, static_cast<int>(line), static_cast<int>(found - line_start), message);
}

// Reading `text` must fail at the nth `word` with a message that holds `message`.
struct ErrorCase {
    std::string text;
    std::string word;
    int nth;
    std::string message;
};

inline void expectErrors(const std::vector<ErrorCase>& cases) {
    for (const ErrorCase& c : cases) {
        const std::string got = errorOf(c.text), where = errorAt(c.text, c.word, c.nth, "");
        EXPECT_EQ(got.rfind(where.substr(0, where.size() - 2), 0), 0u) << got << c.text;
        EXPECT_NE(got.find(", " + c.message), std::string::npos) << got << c.text;
    }
}

// The warning for a field that is read and ignored.
inline std::string unsupported(const std::string& word, int line, int pos) {
    return "[WARNING] CTF file: unsupported field \"" + word +
           "\" in the table, line: " + std::to_string(line) + ", pos: " + std::to_string(pos) +
           ".\n";
}

// Whether `got` matches `want` element by element within `tol`.
inline testing::AssertionResult near(const std::vector<double>& got,
                                     const std::vector<double>& want, double tol = 1e-12) {
    testing::StringMatchResultListener why;
    if (testing::ExplainMatchResult(testing::Pointwise(testing::DoubleNear(tol), want), got, &why))
        return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "got " << testing::PrintToString(got) << ", " << why.str();
}

// Messages many readers share.
inline constexpr const char* kUnknowClass = "unknow field in the table";
inline constexpr const char* kUnknowField = "unknow field";
inline constexpr const char* kMissing = "missing necessary fields for the table";
inline constexpr const char* kBrace = "expecting vector element list beginning with LEFT BRACE";

}  // namespace tech_test
