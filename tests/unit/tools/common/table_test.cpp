// Columns and sizes for people.
#include <gtest/gtest.h>

#include "text/table.h"

using namespace ominspect::text;

TEST(Table, AlignsColumnsByCharactersAndNotByBytes) {
    EXPECT_EQ(Table({{"A", "B", "C"}, {"gr\xC3\xBCn", "1", "last"}}), "A     B  C\ngr\xC3\xBCn  1  last");
}

TEST(Table, IsEmptyWithoutRows) {
    EXPECT_EQ(Table({}), "");
}

TEST(CutToWidth, CutsCharactersAndNotBytes) {
    EXPECT_EQ(CutToWidth("\xC3\xA4z", 1), "\xC3\xA4");
    EXPECT_EQ(CutToWidth("\xC3\xA4z", 2), "\xC3\xA4z");
    EXPECT_EQ(CutToWidth("\xC3\xA4z", 9), "\xC3\xA4z");
    EXPECT_EQ(CutToWidth("ab", 0), "");
}

TEST(Size, HasTheLargestUnitThatFits) {
    EXPECT_EQ(Size(0), "0 B");
    EXPECT_EQ(Size(1023), "1023 B");
    EXPECT_EQ(Size(1536), "1.5 KiB");
    EXPECT_EQ(Size(3221225472.0), "3.0 GiB");
}
