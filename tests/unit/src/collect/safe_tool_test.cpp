// Path safety: masking and dangerous characters.
#include <gtest/gtest.h>

#include <string>

#include "ominspect/collect.h"

TEST(SafeToolMaskTest, ShowsTheLastEightBytesOfALongerPath) {
    EXPECT_EQ(SafeTool::TransferSafePath("/data/inspect/diag/log/applog/a.txt"), "****og/a.txt");
    EXPECT_EQ(SafeTool::TransferSafePath("123456789"), "****23456789");
}

TEST(SafeToolMaskTest, ShowsNothingOfAPathOfAtMostEightBytes) {
    EXPECT_EQ(SafeTool::TransferSafePath("12345678"), "****");
    EXPECT_EQ(SafeTool::TransferSafePath("/data/x"), "****");
    EXPECT_EQ(SafeTool::TransferSafePath(""), "****");
}

TEST(SafeToolMaskTest, CountsBytesAndResolvesNothing) {
    EXPECT_EQ(SafeTool::TransferSafePath("/a//../b/c"), "****//../b/c");
    EXPECT_EQ(SafeTool::TransferSafePath("\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4x"), "****\xA4\xC3\xA4\xC3\xA4\xC3\xA4x");
}

TEST(SafeToolDangerCharTest, FindsEachOfTheNineAnywhere) {
    for (const char dangerous : {'|', ';', '&', '$', '>', '<', '`', '\n', '!'}) {
        EXPECT_TRUE(SafeTool::IsContainDangerChar(std::string("/data/") + dangerous)) << dangerous;
        EXPECT_TRUE(SafeTool::IsContainDangerChar(dangerous + std::string("/data"))) << dangerous;
    }
}

TEST(SafeToolDangerCharTest, LetsEveryOtherByteThrough) {
    const std::string dangerous = "|;&$><`\n!";
    for (int byte = 1; byte < 256; ++byte) {
        if (dangerous.find(static_cast<char>(byte)) == std::string::npos) {
            EXPECT_FALSE(SafeTool::IsContainDangerChar(std::string(1, static_cast<char>(byte)))) << byte;
        }
    }
    EXPECT_FALSE(SafeTool::IsContainDangerChar(""));
}
