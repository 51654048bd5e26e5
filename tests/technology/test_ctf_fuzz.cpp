// Bounded random input for the CTF reader: arbitrary bytes to the scanner, and random token soup
// with damaged bytes to the element framework, with fixed seeds. Nothing may crash or hang, and the
// scanner's output must agree with an independent reading of its rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"
#include "technology/ctf_scanner.h"

namespace {

std::string randomBytes(std::mt19937& rng, std::size_t max_length) {
    static const std::string ctf_like = "0123456789.eE+-_aZ{}(),#\r\n\t  @;";
    std::uniform_int_distribution<std::size_t> length(0, max_length);
    std::uniform_int_distribution<int> byte(0, 255);
    const bool raw = rng() % 2 == 0;
    std::string s(length(rng), ' ');
    for (char& c : s) c = raw ? static_cast<char>(byte(rng)) : ctf_like[rng() % ctf_like.size()];
    return s;
}

// Start offsets of the lines of `s`: CR LF, LF and CR each end a line.
std::vector<std::size_t> lineStarts(const std::string& s) {
    std::vector<std::size_t> starts{0};
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n') ++i;
        if (s[i] == '\r' || s[i] == '\n') starts.push_back(i + 1);
    }
    return starts;
}

bool asciiAlnum(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Whole-text matches of the two word rules, written as plain automata.
bool isName(const std::string& s) {
    if (s.empty() || !asciiAlnum(s[0])) return false;
    for (char c : s)
        if (!asciiAlnum(c) && c != '_' && c != '+' && c != '-') return false;
    return true;
}

// [+-]? (digits (. digits*)? | . digits*) ([eE] [+-]? digits+)?
bool isNumber(const std::string& s) {
    std::size_t i = 0;
    auto sign = [&] {
        if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    };
    auto digits = [&] {
        const std::size_t from = i;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i;
        return i - from;
    };
    sign();
    const std::size_t whole = digits();
    if (i < s.size() && s[i] == '.') {
        ++i;
        digits();
    } else if (whole == 0) {
        return false;
    }
    if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
        ++i;
        sign();
        if (digits() == 0) return false;
    }
    return i == s.size();
}

// Length of the longest name or number that starts at `from`, by trying every length.
std::size_t longestWord(const std::string& s, std::size_t from) {
    std::size_t run = 0;  // words only hold these bytes
    while (from + run < s.size() && (asciiAlnum(s[from + run]) ||
                                     std::string("_+-.").find(s[from + run]) != std::string::npos))
        ++run;
    for (std::size_t n = run; n > 0; --n) {
        const std::string w = s.substr(from, n);
        if (isName(w) || isNumber(w)) return n;
    }
    return 0;
}

TEST(CtfFuzz, ScannerAgreesWithItsRulesOnRandomBytes) {
    const std::string starters = "{}()#, \t\r\n.+-";
    for (unsigned seed : {11u, 12u, 13u}) {
        std::mt19937 rng(seed);
        for (int iter = 0; iter < 2000; ++iter) {
            const std::string text = randomBytes(rng, 200);
            std::string buf = text + std::string(2, '\0');
            std::vector<std::string> tokens;
            std::vector<CtfContext> contexts;
            std::vector<std::vector<std::string>> comments;
            int error = 0;
            std::uint64_t line = 0, pos = 0;
            yylex_parse_file(buf.data(), static_cast<int>(buf.size()), tokens, contexts, comments,
                             error, line, pos);
            SCOPED_TRACE("seed " + std::to_string(seed) + " iteration " + std::to_string(iter));
            ASSERT_EQ(contexts.size(), tokens.size());
            ASSERT_LE(comments.size(), tokens.size() + 1);
            const auto starts = lineStarts(text);
            std::size_t end_of_last = 0;
            for (std::size_t t = 0; t < tokens.size(); ++t) {
                ASSERT_LT(contexts[t].first, starts.size());
                const std::size_t at = starts[contexts[t].first] + contexts[t].second;
                ASSERT_GE(at, end_of_last);
                ASSERT_EQ(text.compare(at, tokens[t].size(), tokens[t]), 0) << tokens[t];
                end_of_last = at + tokens[t].size();
                if (tokens[t].size() == 1 &&
                    std::string("{}()").find(tokens[t][0]) != std::string::npos)
                    continue;
                // The longest of the name and number matches at the token's start.
                ASSERT_EQ(tokens[t].size(), longestWord(text, at)) << tokens[t];
            }
            if (error) {
                ASSERT_LT(line, starts.size());
                const std::size_t at = starts[line] + pos;
                ASSERT_LT(at, text.size());
                const unsigned char c = static_cast<unsigned char>(text[at]);
                const bool alnum = std::isalnum(c) && c < 0x80;
                const bool starter = starters.find(static_cast<char>(c)) != std::string::npos;
                // Either no rule starts with the byte, or it is a sign that starts no number.
                if (starter || alnum) {
                    ASSERT_TRUE(c == '+' || c == '-') << int(c);
                    ASSERT_EQ(longestWord(text, at), 0u);
                }
            }
        }
    }
}

}  // namespace
