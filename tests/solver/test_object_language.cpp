// The object language: its scanner's token stream and quirks, the keyword count, each statement
// form, constants and arithmetic, name reuse, error counting, the parser stack's limit, and
// successive parses in one process.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "runtime/failure.h"
#include "solver/object_language.h"

namespace {

using RW2D::Object;

std::string write_temp(const std::string& stem, const std::string& text) {
    const std::string path =
        testing::TempDir() + "objlang_" + stem + "_" + std::to_string(getpid()) + ".txt";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

struct Token {
    int kind;
    double number;
    int index;
};

// Parses a text; its standard output goes to *out when given.
std::pair<int, Object**> parse_text(const std::string& text, std::string* out = nullptr) {
    const std::string path = write_temp("parse", text);
    testing::internal::CaptureStdout();
    const auto result = RW2D::parse_objects(path);
    std::fflush(stdout);
    const std::string printed = testing::internal::GetCapturedStdout();
    if (out != nullptr) *out = printed;
    std::remove(path.c_str());
    return result;
}

void expect_point(const RW2D::Vector2D& p, double x, double y) {
    EXPECT_DOUBLE_EQ(p.x, x);
    EXPECT_DOUBLE_EQ(p.y, y);
}

constexpr int BEGIN_T = 306, BOX_T = 307, H_T = 316, PARA_T = 321, W_T = 332, WITH_T = 334;

}  // namespace

TEST(ObjectLanguageCount, UnreadableFileThrowsTheFatalErrorItPrinted) {
    for (int parse = 0; parse < 2; ++parse) {
        testing::internal::CaptureStderr();
        try {
            if (parse)
                RW2D::parse_objects("/nonexistent/objlang_in.txt");
            else
                RW2D::count_num_of_objects("/nonexistent/objlang_in.txt");
            ADD_FAILURE() << "an unreadable file must fail";
        } catch (const KARVEN::FatalError& e) {
            EXPECT_TRUE(e.printed());
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Error, fail to open: /nonexistent/objlang_in.txt\n");
    }
}

TEST(ObjectLanguageParse, EachStatementForm) {
    std::string out;
    const auto [count, obj] = parse_text(
        "begin\n"
        "para a = 2; b = a * 3 - 1\n"
        "box m; volt = 1; at (1, a); w = b; h = 0.5\n"
        "poly d; diel = 3.9; (0, 0), (4, 0), (3, 1), (1, 1)\n"
        "capa\n"
        "circ c; volt = 0; at (2, -3); r = a / 8\n"
        "end\n",
        &out);
    EXPECT_EQ(out, "");
    ASSERT_EQ(count, 3);
    ASSERT_NE(obj, nullptr);

    // b = 2*3 - 1 = 5: the box spans x 1..6, y 2..2.5.
    const Object& m = *obj[0];
    EXPECT_EQ(m.name, "m");
    EXPECT_EQ(m.type, Object::CONDUCTOR);
    EXPECT_EQ(m.value, 1.0);
    EXPECT_FALSE(m.is_circle);
    EXPECT_EQ(m.radius, 0.0);
    expect_point(m.points[0], 1, 2);
    expect_point(m.points[1], 6, 2);
    expect_point(m.points[2], 6, 2.5);
    expect_point(m.points[3], 1, 2.5);

    const Object& d = *obj[1];
    EXPECT_EQ(d.name, "d");
    EXPECT_EQ(d.type, Object::MEDIUM);
    EXPECT_DOUBLE_EQ(d.value, 3.9);
    expect_point(d.points[0], 0, 0);
    expect_point(d.points[1], 4, 0);
    expect_point(d.points[2], 3, 1);
    expect_point(d.points[3], 1, 1);

    const Object& c = *obj[2];
    EXPECT_EQ(c.name, "c");
    EXPECT_EQ(c.type, Object::CONDUCTOR);
    EXPECT_EQ(c.value, 0.0);
    EXPECT_TRUE(c.is_circle);
    EXPECT_DOUBLE_EQ(c.radius, 0.25);
    expect_point(c.points[0], 2, -3);
    for (int i = 1; i < 4; ++i) expect_point(c.points[i], 0, 0);
}
