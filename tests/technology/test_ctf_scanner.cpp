// CTF scanner: token boundaries of the rule table, (line, position) contexts, comment
// attachment, lexical error reporting, and the read limit of the interpreter.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"
#include "technology/ctf_scanner.h"
#include "technology/ctf_token.h"

namespace {

using Strings = std::vector<std::string>;

struct Scan {
    Strings tokens;
    std::vector<CtfContext> contexts;
    std::vector<Strings> comments;
    int error = -1;
    std::uint64_t line = 99, pos = 99;
};

Scan scan(const std::string& text) {
    std::string buf = text;
    buf.push_back('\0');
    buf.push_back('\0');
    Scan s;
    // Stale content must be gone after the call.
    s.tokens = {"stale"};
    s.contexts = {{7, 7}};
    s.comments = {{"#stale"}};
    yylex_parse_file(buf.data(), static_cast<int>(buf.size()), s.tokens, s.contexts, s.comments,
                     s.error, s.line, s.pos);
    return s;
}

Strings tokensOf(const std::string& text) {
    return scan(text).tokens;
}

TEST(CtfScanner, TokenBoundaries) {
    // Longest match between names and numbers; a dot only inside a number; braces stand alone.
    const std::pair<const char*, Strings> cases[] = {
        {"M1.2", {"M1", ".2"}},
        {"1.2.3", {"1.2", ".3"}},
        {"1.5abc", {"1.5", "abc"}},
        {"a-b", {"a-b"}},
        {"1e5x", {"1e5x"}},  // the name is longer than the number 1e5
        {"5-3", {"5-3"}},
        {"1e-5", {"1e-5"}},
        {"1e", {"1e"}},
        {"gate_oxide_er+x", {"gate_oxide_er+x"}},
        {".", {"."}},
        {"+.", {"+."}},
        {"-.5", {"-.5"}},
        {"12.e5", {"12.e5"}},
        {"1.5e+3x", {"1.5e+3", "x"}},
        {"+5a", {"+5", "a"}},
        {"1e5.2", {"1e5", ".2"}},
        {".e5", {".e5"}},
        {".e", {".", "e"}},
        {"-a", {"a"}},
        {"widths{1 2}(3)", {"widths", "{", "1", "2", "}", "(", "3", ")"}}};
    for (const auto& [text, tokens] : cases) EXPECT_EQ(tokensOf(text), tokens) << text;
    Scan s = scan("M1.2 widths{");
    EXPECT_EQ(s.contexts, (std::vector<CtfContext>{{0, 0}, {0, 2}, {0, 5}, {0, 11}}));
    EXPECT_EQ(s.error, 0);

    // A name does not start with an underscore, and a sign alone starts nothing.
    for (const char* bad : {"_", "_ab", "+", "-", "+ 1", "-a"}) {
        Scan b = scan(bad);
        EXPECT_EQ(b.error, 1) << bad;
        EXPECT_EQ(b.pos, 0u) << bad;
    }
    Scan lead = scan("_ab");
    EXPECT_EQ(lead.tokens, Strings{"ab"});
    EXPECT_EQ(lead.contexts[0], (CtfContext{0, 1}));
}

TEST(CtfScanner, LineEndsAndPositions) {
    // CR LF is one line end, a lone CR is one too, LF CR are two.
    EXPECT_EQ(scan("a\r\nb").contexts[1], (CtfContext{1, 0}));
    EXPECT_EQ(scan("a\rb").contexts[1], (CtfContext{1, 0}));
    EXPECT_EQ(scan("a\n\rb").contexts[1], (CtfContext{2, 0}));
    EXPECT_EQ(scan("a\r\r\nb").contexts[1], (CtfContext{2, 0}));
    EXPECT_EQ(scan("a\r\n\r\n  b").contexts[1], (CtfContext{2, 2}));

    // Blanks, tabs and commas each count one byte; a comma separates like a blank.
    Scan s = scan("\t x,y ,, z");
    EXPECT_EQ(s.tokens, (Strings{"x", "y", "z"}));
    EXPECT_EQ(s.contexts, (std::vector<CtfContext>{{0, 2}, {0, 4}, {0, 9}}));
}

TEST(CtfScanner, CommentsAttachToTheFollowingToken) {
    Scan head = scan("# c1\n# c2 \r\nx");
    EXPECT_EQ(head.tokens, Strings{"x"});
    ASSERT_EQ(head.comments.size(), 1u);
    EXPECT_EQ(head.comments[0], (Strings{"# c1", "# c2 "}));

    // Comments after the last token, the last without a line end, form one extra entry.
    Scan tail = scan("a #c1\n b c #c2\n#c3");
    EXPECT_EQ(tail.tokens, (Strings{"a", "b", "c"}));
    ASSERT_EQ(tail.comments.size(), 4u);
    EXPECT_EQ(tail.comments[0], Strings{});
    EXPECT_EQ(tail.comments[1], Strings{"#c1"});
    EXPECT_EQ(tail.comments[2], Strings{});
    EXPECT_EQ(tail.comments[3], (Strings{"#c2", "#c3"}));

    // No comment at all leaves the list empty; bad bytes inside a comment are no error.
    EXPECT_TRUE(scan("a b").comments.empty());
    Scan quoted = scan("a # \"=;@\xff\n b");
    EXPECT_EQ(quoted.error, 0);
    EXPECT_EQ(quoted.comments[1], Strings{"# \"=;@\xff"});
    EXPECT_EQ(quoted.contexts[1], (CtfContext{1, 1}));
}

TEST(CtfScanner, FirstBadByteIsReportedAndScanningGoesOn) {
    Scan s = scan("a\n b ; c\n @ d");
    EXPECT_EQ(s.error, 1);
    EXPECT_EQ(s.line, 1u);
    EXPECT_EQ(s.pos, 3u);
    EXPECT_EQ(s.tokens, (Strings{"a", "b", "c", "d"}));
    // A bad byte counts one position.
    EXPECT_EQ(s.contexts[2], (CtfContext{1, 5}));
    EXPECT_EQ(s.contexts[3], (CtfContext{2, 3}));

    for (const char* bad : {"\"", ";", ":", "=", "/", "*", "\x7f", "\x80", "\xff", "@", "\f"}) {
        Scan one = scan(std::string("x ") + bad);
        EXPECT_EQ(one.error, 1) << int(static_cast<unsigned char>(bad[0]));
        EXPECT_EQ(one.pos, 2u);
    }

    // A NUL inside the file is a byte like any other, not the end.
    Scan nul = scan(std::string("a\0b", 3));
    EXPECT_EQ(nul.tokens, (Strings{"a", "b"}));
    EXPECT_EQ(nul.error, 1);
    EXPECT_EQ(nul.pos, 1u);

    Scan empty = scan("");
    EXPECT_TRUE(empty.tokens.empty());
    EXPECT_TRUE(empty.contexts.empty());
    EXPECT_TRUE(empty.comments.empty());
    EXPECT_EQ(empty.error, 0);
}

TEST(CtfLexer, LexicalErrorTextCountsLinesFromOne) {
    CtfInterpreter ci;
    std::istringstream in("conductor M1 {\n  thickness 0.2 ; er 3\n} @");
    try {
        ci.lexer(in);
        FAIL() << "no error";
    } catch (const Ctf_Error& e) {
        EXPECT_NE(dynamic_cast<const Ctf_Lexical_Error*>(&e), nullptr);
        EXPECT_EQ(e.text, "Unexpected character at line: 2, pos: 16.\n");
    }
    // The token list is still complete.
    EXPECT_EQ(ci.stream.tokens.size(), 8u);  // conductor M1 { thickness 0.2 er 3 }
}

TEST(CtfLexer, EachReadReplacesThePreviousStream) {
    CtfInterpreter ci;
    std::istringstream first("a b c # x");
    EXPECT_EQ(ci.lexer(first), 1);
    ci.stream.current = 2;
    ci.stream.at_end = 1;
    std::istringstream second("# only\n# comments");
    EXPECT_EQ(ci.lexer(second), 1);
    EXPECT_TRUE(ci.stream.tokens.empty());
    EXPECT_TRUE(ci.stream.contexts.empty());
    EXPECT_EQ(ci.stream.comments, (std::vector<Strings>{{"# only", "# comments"}}));
    EXPECT_EQ(ci.stream.current, 0u);
    EXPECT_EQ(ci.stream.at_end, 0);
    EXPECT_EQ(std::string(Ctf_Error::emptyFile().what()), "CTF error: empty ctf file.");
}

TEST(CtfLexer, ReadStopsSilentlyTwoBytesShortOfSixteenMebibytes) {
    const std::size_t limit = 16u * 1024u * 1024u - 2u;  // 16,777,214 bytes are read
    // "a", blanks, then "bc" ending exactly at the limit; "d@" lies beyond it.
    std::string text = "a" + std::string(limit - 3, ' ') + "bc";
    ASSERT_EQ(text.size(), limit);
    CtfInterpreter ci;
    {
        std::istringstream in(text + "d@");
        EXPECT_EQ(ci.lexer(in), 1);  // the bad byte is never seen
        EXPECT_EQ(ci.stream.tokens, (Strings{"a", "bc"}));
        EXPECT_EQ(ci.stream.contexts[1], (CtfContext{0, limit - 2}));
    }
    {
        // The last byte that is read still counts.
        text.back() = '@';
        std::istringstream in(text);
        try {
            ci.lexer(in);
            FAIL() << "no error";
        } catch (const Ctf_Lexical_Error& e) {
            EXPECT_EQ(e.text,
                      "Unexpected character at line: 1, pos: " + std::to_string(limit - 1) + ".\n");
        }
    }
}

TEST(CtfErrors, SyntaxErrorTextAndCursor) {
    TokenStream ts;
    ts.tokens = {"widths", "{", "x"};
    ts.contexts = {{0, 0}, {3, 7}, {4, 12}};
    ts.current = 2;
    Ctf_Syntax_Error here(ts, "bad thing", -1);
    EXPECT_EQ(here.text, "CTF error at \"x\", line: 5, pos: 12, bad thing.\n");
    EXPECT_EQ(ts.current, 2u);

    Ctf_Syntax_Error there(ts, nullptr, 1);
    EXPECT_EQ(there.text, "CTF error at \"{\", line: 4, pos: 7.\n");
    EXPECT_EQ(ts.current, 1u);  // the error moved the cursor to the token it names
}

}  // namespace
