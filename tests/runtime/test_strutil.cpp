// Text helpers of the readers: case-folding comparison and the word splitter.
#include <gtest/gtest.h>

#include <sstream>

#include "runtime/strutil.h"

TEST(StrUtil, CompareFoldsCaseInPlaceOnlyWhenAskedAndSplitDropsEmptyPieces) {
    std::string a = "Yes", b = "YES", e1, e2, longer = "YESS";
    EXPECT_EQ(StrUtil::compare(a, b, 1), 0);
    EXPECT_EQ(a, "Yes");  // untouched when case matters
    EXPECT_EQ(StrUtil::compare(a, b, 0), 1);
    EXPECT_EQ(a, "YES");  // both upper-cased as a side effect
    EXPECT_EQ(StrUtil::compare(e1, e2, 0), 1);
    EXPECT_EQ(StrUtil::compare(a, longer, 0), 0);

    std::istringstream in("  M1\t 31  0\tDEVICE\n\n\tlast");
    std::vector<std::vector<std::string>> lines;
    for (std::vector<std::string> w; StrUtil::splitLine2Words(in, w);) lines.push_back(w);
    EXPECT_EQ(lines,
              (std::vector<std::vector<std::string>>{{"M1", "31", "0", "DEVICE"}, {}, {"last"}}));
}
