// Reading one statement from CTF text, and the error text expected at a word of that text, for
// the tests of the layer and device statements.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <sstream>
#include <string>

#include "driver/pargument.h"
#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"

namespace stmt_test {

// An interpreter with all processors, loaded with `text`, cursor on the first token.
class Statement {
public:
    explicit Statement(const std::string& text) {
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

// The error text of reading the first element of `text`.
inline std::string errorOf(const std::string& text) {
    Statement s(text);
    return s.error();
}

// The syntax error text for `message` at the nth (from 1) whole-word occurrence of `word` in
// `text`, line counted from 1 and position from 0 by walking the text itself.
inline std::string errorAt(const std::string& text, const std::string& word, int nth,
                           const std::string& message) {
    auto wordByte = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '+' || c == '-' ||
               c == '.';
    };
    const bool word_like = wordByte(word[0]);
    std::size_t at = std::string::npos;
    for (std::size_t from = 0; nth > 0;) {
        at = text.find(word, from);
        if (at == std::string::npos) return "word not in text: " + word;
        from = at + 1;
        const std::size_t end = at + word.size();
        const bool whole = !word_like || ((at == 0 || !wordByte(text[at - 1])) &&
                                          (end >= text.size() || !wordByte(text[end])));
        if (whole) --nth;
    }
    std::size_t line = 1, line_start = 0;
    for (std::size_t i = 0; i < at; ++i)
        if (text[i] == '\n') {
            ++line;
            line_start = i + 1;
        }
    return "CTF error at \"" + word + "\", line: " + std::to_string(line) +
           ", pos: " + std::to_string(at - line_start) + ", " + message + ".\n";
}

// Expects reading `text` to fail with `message` at the nth occurrence of `word`.
#define EXPECT_STATEMENT_ERROR(text, word, nth, message)                     \
    do {                                                                     \
        const std::string statement_text_ = (text);                          \
        EXPECT_EQ(::stmt_test::errorOf(statement_text_),                     \
                  ::stmt_test::errorAt(statement_text_, word, nth, message)) \
            << statement_text_;                                              \
    } while (0)

// Sets engine switches for one test and removes them afterwards.
class SwitchScope {
public:
    SwitchScope() { PARG::clear(); }
    ~SwitchScope() { PARG::clear(); }
    SwitchScope(const SwitchScope&) = delete;
    SwitchScope& operator=(const SwitchScope&) = delete;
    void set(const std::string& key, const std::string& value) { PARG::regArgument(key, value); }
};

}  // namespace stmt_test
