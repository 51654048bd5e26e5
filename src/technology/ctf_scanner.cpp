// Hand-written scanner. At each byte the longest match of the rules wins and the earlier rule
// wins a tie; only the name and number rules can compete, and both yield the matched text, so
// taking the longer of the two reproduces that order exactly.
#include "technology/ctf_scanner.h"

#include <cstddef>

namespace {

bool isDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}
bool isLetter(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isNameByte(unsigned char c) {
    return isDigit(c) || isLetter(c) || c == '_' || c == '+' || c == '-';
}

// Scanner state of one call; kept per call so two readers never share it.
struct ScanState {
    const unsigned char* text;
    std::size_t size;  // bytes of the file, without the two closing NULs
    std::vector<std::string>& token_seq;
    std::vector<CtfContext>& context_seq;
    std::vector<std::vector<std::string>>& comment_seq;
    std::uint64_t lex_linenum = 0;
    std::uint64_t lex_linepos = 0;
    int lex_error = 0;
    std::uint64_t lex_error_linenum = 0;
    std::uint64_t lex_error_linepos = 0;

    // Byte at k, or 0 past the end; 0 matches no class of the name and number rules.
    unsigned char at(std::size_t k) const { return k < size ? text[k] : 0; }

    // Length of a name (letter or digit, then letters, digits, '_', '+', '-') at i, or 0.
    std::size_t nameLength(std::size_t i) const {
        if (!isDigit(at(i)) && !isLetter(at(i))) return 0;
        std::size_t j = i + 1;
        while (isNameByte(at(j))) ++j;
        return j - i;
    }

    // Length of the longest number at i, or 0: [+-]? (D+ (. D*)? | . D*) ([eE] [+-]? D+)?
    std::size_t numberLength(std::size_t i) const {
        std::size_t j = i;
        if (at(j) == '+' || at(j) == '-') ++j;
        if (isDigit(at(j))) {
            while (isDigit(at(j))) ++j;
            if (at(j) == '.') {
                ++j;
                while (isDigit(at(j))) ++j;
            }
        } else if (at(j) == '.') {
            ++j;
            while (isDigit(at(j))) ++j;
        } else {
            return 0;
        }
        if (at(j) == 'e' || at(j) == 'E') {
            std::size_t k = j + 1;
            if (at(k) == '+' || at(k) == '-') ++k;
            if (isDigit(at(k))) {
                while (isDigit(at(k))) ++k;
                j = k;
            }
        }
        return j - i;
    }

    void addToken(std::size_t i, std::size_t n) {
        token_seq.emplace_back(reinterpret_cast<const char*>(text) + i, n);
        context_seq.emplace_back(lex_linenum, lex_linepos);
        lex_linepos += n;
    }

    void addComment(std::size_t i, std::size_t n) {
        // The comment belongs to the token that will follow it.
        comment_seq.resize(token_seq.size() + 1);
        comment_seq.back().emplace_back(reinterpret_cast<const char*>(text) + i, n);
        lex_linepos += n;
    }

    void badByte() {
        if (!lex_error) {
            lex_error = 1;
            lex_error_linenum = lex_linenum;
            lex_error_linepos = lex_linepos;
        }
        lex_linepos += 1;
    }

    void run() {
        std::size_t i = 0;
        while (i < size) {
            const unsigned char c = text[i];
            if (c == '\r' || c == '\n') {
                i += (c == '\r' && at(i + 1) == '\n') ? 2 : 1;
                ++lex_linenum;
                lex_linepos = 0;
            } else if (c == ' ' || c == '\t') {
                std::size_t j = i + 1;
                while (at(j) == ' ' || at(j) == '\t') ++j;
                lex_linepos += j - i;
                i = j;
            } else if (c == ',') {
                lex_linepos += 1;
                ++i;
            } else if (c == '#') {
                std::size_t j = i + 1;
                while (j < size && text[j] != '\r' && text[j] != '\n') ++j;
                addComment(i, j - i);
                i = j;
            } else if (c == '{' || c == '}' || c == '(' || c == ')') {
                addToken(i, 1);
                ++i;
            } else {
                const std::size_t name = nameLength(i);
                const std::size_t number = numberLength(i);
                const std::size_t n = name >= number ? name : number;
                if (n == 0) {
                    badByte();
                    ++i;
                } else {
                    addToken(i, n);
                    i += n;
                }
            }
        }
    }
};

}  // namespace

int yylex_parse_file(char* buffer, int length, std::vector<std::string>& tokens,
                     std::vector<CtfContext>& contexts,
                     std::vector<std::vector<std::string>>& comments, int& error,
                     std::uint64_t& error_line, std::uint64_t& error_pos) {
    tokens.clear();
    contexts.clear();
    comments.clear();
    ScanState s{reinterpret_cast<const unsigned char*>(buffer),
                length > 2 ? static_cast<std::size_t>(length - 2) : 0, tokens, contexts, comments};
    s.run();
    error = s.lex_error;
    error_line = s.lex_error_linenum;
    error_pos = s.lex_error_linepos;
    return static_cast<int>(tokens.size());
}
