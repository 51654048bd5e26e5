// CTF element framework: each generic element form with each of its error texts (token, line and
// position worked out by hand), and a nesting too deep to follow.
#include <gtest/gtest.h>

#include <string>

#include "tech_test_util.h"

namespace {

using namespace tech_test;

TEST(CtfForms, ErrorTextsWithTokenLineAndPosition) {
    const char* number = "expecting number value for the attribute";
    const char* tuple_end = "cannot find the end of the tuple";
    const char* tuple_number = "invalid tuple element detected (only number value is allowed)";
    const std::string pair = "gate_diffusion_layer_pair ";  // 26 bytes
    struct Case {
        std::string text, token;
        int line, pos;
        const char* message;
    };
    const Case cases[] = {
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
    for (const Case& c : cases)
        EXPECT_EQ(errorOf(c.text), at(c.token, c.line, c.pos, c.message)) << c.text;
}

TEST(CtfInterpreterTest, DeepNestingIsAnErrorNotACrash) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += "crt_area { ";
    EXPECT_NE(errorOf(text), "no error");
}

}  // namespace
