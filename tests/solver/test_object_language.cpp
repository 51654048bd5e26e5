// The object language: an unreadable file's fatal error, and each statement form with its
// constants and arithmetic.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "runtime/failure.h"
#include "solver/object_language.h"

namespace {

using RW2D::Object;

// Parses a text; its standard output goes to *out when given.
std::pair<int, Object**> parse_text(const std::string& text, std::string* out = nullptr) {
    const std::string path = testing::TempDir() + "objlang_" + std::to_string(getpid()) + ".txt";
    std::ofstream(path, std::ios::binary) << text;
    testing::internal::CaptureStdout();
    const auto result = RW2D::parse_objects(path);
    std::fflush(stdout);
    const std::string printed = testing::internal::GetCapturedStdout();
    if (out != nullptr) *out = printed;
    std::remove(path.c_str());
    return result;
}

// An object's name, kind, value, radius and four corners, as one line to compare.
std::string describe(const Object& o) {
    std::ostringstream s;
    s << o.name << (o.type == Object::CONDUCTOR ? " cond " : " medium ") << o.value
      << (o.is_circle ? " circle " : " quad ") << o.radius;
    for (const auto& p : o.points) s << " (" << p.x << "," << p.y << ")";
    return s.str();
}

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

    // b = 2*3 - 1 = 5: the box spans x 1..6, y 2..2.5; the circle's radius is 2/8.
    EXPECT_EQ(describe(*obj[0]), "m cond 1 quad 0 (1,2) (6,2) (6,2.5) (1,2.5)");
    EXPECT_EQ(describe(*obj[1]), "d medium 3.9 quad 0 (0,0) (4,0) (3,1) (1,1)");
    EXPECT_EQ(describe(*obj[2]), "c cond 0 circle 0.25 (2,-3) (0,0) (0,0) (0,0)");
}
