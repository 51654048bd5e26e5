#pragma once
// The CTF scanner: turns a whole file into tokens, their positions and the comments before them.
// A token is only a string here; what it means is decided by the statement that reads it.

#include <cstdint>
#include <string>
#include <vector>

#include "technology/ctf_token.h"

// Scans `length` bytes of `buffer`, whose last two bytes are NUL (length counts them). The three
// sequences are replaced by the file's tokens, their (line, position) and the comment lines
// before each token; comments after the last token form one extra entry. A byte no rule accepts
// does not stop the scan: the first one sets `error` to 1 and its line and position (from 0)
// are kept in error_line and error_pos; otherwise `error` is 0. Returns the number of tokens.
int yylex_parse_file(char* buffer, int length, std::vector<std::string>& tokens,
                     std::vector<CtfContext>& contexts,
                     std::vector<std::vector<std::string>>& comments, int& error,
                     std::uint64_t& error_line, std::uint64_t& error_pos);
