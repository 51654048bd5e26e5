// CTF scanner: token boundaries of the rule table, (line, position) contexts, and the lexical and
// syntax error positions; then the element framework: each generic element form with each of its
// error texts (token, line and position worked out by hand), and a nesting too deep to follow.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tech_test_util.h"
#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"
#include "technology/ctf_scanner.h"
#include "technology/ctf_token.h"

namespace {

using Strings = std::vector<std::string>;

// Scanner outputs, filled with stale content that a scan must replace.
struct Scan {
    Strings tokens = {"stale"};
    std::vector<CtfContext> contexts = {{7, 7}};
    std::vector<Strings> comments = {{"#stale"}};
    int error = -1;
    std::uint64_t line = 99, pos = 99;
};

Scan scan(const std::string& text) {
    std::string buf = text;
    buf.push_back('\0');
    buf.push_back('\0');
    Scan s;
    yylex_parse_file(buf.data(), static_cast<int>(buf.size()), s.tokens, s.contexts, s.comments,
                     s.error, s.line, s.pos);
    return s;
}

TEST(CtfScanner, TokenBoundaries) {
    // Longest match between names and numbers; a dot only inside a number; braces stand alone.
    const std::pair<const char*, Strings> cases[] = {
        {"M1.2", {"M1", ".2"}},
        {"1.2.3", {"1.2", ".3"}},
        {"1e5x", {"1e5x"}},  // the name is longer than the number 1e5
        {"5-3", {"5-3"}},
        {"gate_oxide_er+x", {"gate_oxide_er+x"}},
        {"+.", {"+."}},
        {"12.e5", {"12.e5"}},
        {"1.5e+3x", {"1.5e+3", "x"}},
        {"+5a", {"+5", "a"}},
        {".e", {".", "e"}},
        {"widths{1 2}(3)", {"widths", "{", "1", "2", "}", "(", "3", ")"}}};
    for (const auto& [text, tokens] : cases) EXPECT_EQ(scan(text).tokens, tokens) << text;
    Scan s = scan("M1.2 widths{");
    EXPECT_EQ(s.contexts, (std::vector<CtfContext>{{0, 0}, {0, 2}, {0, 5}, {0, 11}}));
    EXPECT_EQ(s.error, 0);

    // A name does not start with an underscore, and a sign alone starts nothing.
    for (const char* bad : {"_ab", "+ 1", "-a"})
        EXPECT_TRUE(scan(bad).error == 1 && scan(bad).pos == 0) << bad;
    const Scan lead = scan("_ab");
    EXPECT_TRUE(lead.tokens == Strings{"ab"} && lead.contexts.at(0) == (CtfContext{0, 1}));
}

TEST(CtfScanner, LineEndsAndPositions) {
    // CR LF is one line end, a lone CR is one too, LF CR are two.
    for (const auto& [text, line] :
         {std::pair{"a\r\nb", 1u}, {"a\rb", 1u}, {"a\n\rb", 2u}, {"a\r\r\nb", 2u}})
        EXPECT_EQ(scan(text).contexts[1], (CtfContext{line, 0})) << line;
    EXPECT_EQ(scan("a\r\n\r\n  b").contexts[1], (CtfContext{2, 2}));

    // Blanks, tabs and commas each count one byte; a comma separates like a blank.
    Scan s = scan("\t x,y ,, z");
    EXPECT_EQ(s.tokens, (Strings{"x", "y", "z"}));
    EXPECT_EQ(s.contexts, (std::vector<CtfContext>{{0, 2}, {0, 4}, {0, 9}}));
}

TEST(CtfLexer, LexicalErrorTextCountsLinesFromOne) {
    CtfInterpreter ci;
    std::istringstream in("conductor M1 {\n  thickness 0.2 ; er 3\n} @");
    std::string text = "no error";
    try {
        ci.lexer(in);
    } catch (const Ctf_Lexical_Error& e) {
        text = e.text;
    }
    EXPECT_EQ(text, "Unexpected character at line: 2, pos: 16.\n");
    // The token list is still complete.
    EXPECT_EQ(ci.stream.tokens.size(), 8u);  // conductor M1 { thickness 0.2 er 3 }
}

using namespace tech_test;

TEST(CtfForms, ErrorTextsWithTokenLineAndPosition) {
    const char* number = "expecting number value for the attribute";
    const char* tuple_end = "cannot find the end of the tuple";
    const char* tuple_number = "invalid tuple element detected (only number value is allowed)";
    const std::string pair = "gate_diffusion_layer_pair ";  // 26 bytes
    // {text, token, line, position, message}
    const std::tuple<std::string, std::string, int, int, const char*> cases[] = {
        {"\n  thickness", "thickness", 2, 2, "expecting attribute value"},
        {"thickness { 1 }", "{", 1, 10, number},
        {" widths", "widths", 1, 1, kBrace},
        {"widths w1 { 1 }", "widths", 1, 0, kBrace},  // no name allowed
        {"widths { 1 x }", "x", 1, 11,
         "invalid vector elements detected (only number value is allowed)"},
        {"device_type nmos", "device_type", 1, 0, kBrace},
        {"\n\n    (", "(", 3, 4, "expecting tuple elements"},
        {"(1 a)", "a", 1, 3, tuple_number},
        {"crt_area { (1 2)\n is_gate }", "is_gate", 2, 1,
         "expecting tuple beginning with LEFT PARENTHESIS"},
        {"crt_area { 5 }", "5", 1, 11, "unknown keyword"},
        {"er_table {\n is_gate }", "is_gate", 2, 1,
         "expecting key-value pairs beginning with LEFT PARENTHESIS"},
        {"er_table { (", "(", 1, 11, "expecting key name"},
        {"er_table { ( a", "a", 1, 13, "expecting value"},
        {"er_table { ( a b )", "b", 1, 15, "invalid value (only numbers are allowed)"},
        {"er_table { ( a 1 2 ) }", "2", 1, 17, tuple_end},
        {pair + "{ is_gate }", "is_gate", 1, 28,
         "expecting string tuple beginning with LEFT PARENTHESIS"},
        {pair + "{ (", "(", 1, 28, "expecting string"},
        {pair + "{ ( g1", "g1", 1, 30, "expecting second string"},
        {pair + "{ ( g1 d1 x ) }", "x", 1, 36, "only two string elements are allowed in the tuple"},
        {"tall_via_config { a { b }", "}", 1, 24, "cannot find the end of the table"},
        {"tall_via_config x y", "y", 1, 18, "expecting table content beginning with LEFT BRACE"},
        {"\n  foo { }", "foo", 2, 2, "unknown keyword"},
    };
    for (const auto& [text, token, line, pos, message] : cases)
        EXPECT_EQ(errorOf(text), at(token, line, pos, message)) << text;
}

TEST(CtfInterpreterTest, DeepNestingIsAnErrorNotACrash) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += "crt_area { ";
    EXPECT_NE(errorOf(text), "no error");
}

}  // namespace
