// Reading one table element from CTF text, and the error text expected at a word of that text.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <sstream>
#include <string>

#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"

class TableReader {
public:
  explicit TableReader(const std::string& text) {
    std::istringstream in(text);
    ci.lexer(in);
    ci.initProcessors();
  }

  // The processor that read the element at the cursor, as T (null if it is another class).
  template <class T>
  T* read() {
    return dynamic_cast<T*>(ci.processElem());
  }

  // The error text of reading the element at the cursor; "no error" when it reads.
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

// The syntax error text for `message` at the nth (from 1) occurrence of the token `word` in
// `text`. Line and position are counted here from the text itself.
inline std::string errorAt(const std::string& text, const std::string& word, int nth,
                           const std::string& message) {
  auto isWordByte = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '+' || c == '-' ||
           c == '.';
  };
  const bool word_like = isWordByte(word[0]);
  size_t at = std::string::npos;
  for (size_t from = 0; nth > 0;) {
    at = text.find(word, from);
    if (at == std::string::npos) break;
    from = at + 1;
    const bool starts = at == 0 || !word_like || !isWordByte(text[at - 1]);
    const size_t end = at + word.size();
    const bool ends = end >= text.size() || !word_like || !isWordByte(text[end]);
    if (starts && ends) --nth;
  }
  if (at == std::string::npos) return "word not in text: " + word;
  size_t line = 1, line_start = 0;
  for (size_t i = 0; i < at; ++i)
    if (text[i] == '\n') {
      ++line;
      line_start = i + 1;
    }
  return "CTF error at \"" + word + "\", line: " + std::to_string(line) +
         ", pos: " + std::to_string(at - line_start) + ", " + message + ".\n";
}

// Expects reading `text` to fail with `message` at the nth `word`.
#define EXPECT_TABLE_ERROR(text, word, nth, message)                          \
  do {                                                                        \
    const std::string table_text_ = (text);                                   \
    TableReader table_reader_(table_text_);                                   \
    EXPECT_EQ(table_reader_.error(), errorAt(table_text_, word, nth, message)); \
  } while (0)
