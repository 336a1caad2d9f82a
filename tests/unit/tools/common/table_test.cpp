// Columns and sizes for people.
#include <gtest/gtest.h>

#include "common/table.h"

using namespace ominspect::text;

TEST(Table, AlignsColumnsByTheirWidthAndNotByBytes) {
    EXPECT_EQ(Table({{"A", "B", "C"}, {"gr\xC3\xBCn", "1", "last"}}), "A     B  C\ngr\xC3\xBCn  1  last");
    EXPECT_EQ(Table({{"ABCDE", "B"}, {"\xE6\x97\xA5\xE6\x9C\xAC", "1"}}), "ABCDE  B\n\xE6\x97\xA5\xE6\x9C\xAC   1");
}

TEST(Table, IsEmptyWithoutRows) {
    EXPECT_EQ(Table({}), "");
}

TEST(Table, SizesHaveTheLargestUnitThatFits) {
    EXPECT_EQ(Size(0), "0 B");
    EXPECT_EQ(Size(1023), "1023 B");
    EXPECT_EQ(Size(1024), "1.0 KiB");
    EXPECT_EQ(Size(1536), "1.5 KiB");
    EXPECT_EQ(Size(3221225472.0), "3.0 GiB");
}
