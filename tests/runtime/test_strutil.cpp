// Text helpers of the readers: case-folding comparison and the word splitter.
#include <gtest/gtest.h>

#include <sstream>

#include "runtime/strutil.h"

TEST(StrUtil, CompareFoldsCaseInPlaceOnlyWhenAsked) {
    std::string a = "Yes", b = "YES";
    EXPECT_EQ(StrUtil::compare(a, b, 1), 0);
    EXPECT_EQ(a, "Yes");  // untouched when case matters
    EXPECT_EQ(StrUtil::compare(a, b, 0), 1);
    EXPECT_EQ(a, "YES");  // both upper-cased as a side effect
    std::string e1, e2, longer = "YESS";
    EXPECT_EQ(StrUtil::compare(e1, e2, 0), 1);
    EXPECT_EQ(StrUtil::compare(a, longer, 0), 0);
}

TEST(StrUtil, SplitsOnBlanksAndTabsDroppingEmptyPieces) {
    std::istringstream in("  M1 \t 31  0 DEVICE\n\n\tlast");
    std::vector<std::string> w;
    ASSERT_TRUE(StrUtil::splitLine2Words(in, w));
    EXPECT_EQ(w, (std::vector<std::string>{"M1", "31", "0", "DEVICE"}));
    ASSERT_TRUE(StrUtil::splitLine2Words(in, w));
    EXPECT_TRUE(w.empty());
    ASSERT_TRUE(StrUtil::splitLine2Words(in, w));
    EXPECT_EQ(w, (std::vector<std::string>{"last"}));
    EXPECT_FALSE(StrUtil::splitLine2Words(in, w));
}
