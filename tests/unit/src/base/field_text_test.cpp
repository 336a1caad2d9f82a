// Reading of fixed-size text fields.
#include "base/field_text.h"

#include <gtest/gtest.h>

TEST(FieldTextTest, ReadsUpToTheNul) {
    const char field[8] = {'a', 'b', '\0', 'x', 'x', 'x', 'x', 'x'};
    EXPECT_STREQ(FieldText(field).c_str(), "ab");
    EXPECT_EQ(FieldText(field).View(), "ab");
}

TEST(FieldTextTest, ReadsAFieldWithoutNulToItsEnd) {
    const char both[2][4] = {{'a', 'b', 'c', 'd'}, {'e', 'f', 'g', 'h'}};
    EXPECT_STREQ(FieldText(both[0]).c_str(), "abcd");
    EXPECT_EQ(FieldText(both[0]).View(), "abcd");
}
