// What stands before the platform's functions, and that it does theirs while nobody looks.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "collect/intercept.h"
#include "kivo/om_log_client.h"
#include "kivo/os_file.h"
#include "support/temp_folder.h"

using namespace ominspect;
using support::Contents;
using support::WriteFile;
using Lines = std::vector<std::string>;

namespace {

TEST(LogCaptureTest, TakesTheLinesWhileItLives) {
    Lines lines;
    {
        const LogCapture capture(
            [&](unsigned level, const std::string& text) { lines.push_back(std::to_string(level) + ' ' + text); });
        KivoOmLogModuleLogRecord(3, 0, "unit", 0, 0, "%s %d", "text", 7);
    }
    KivoOmLogModuleLogRecord(3, 0, "unit", 0, 0, "later");
    EXPECT_EQ(lines, (Lines{"3 text 7"}));
}

TEST(CopyWatchTest, AsksBeforeAndTellsAfterwards) {
    const support::WorkingFolder work;
    WriteFile("source", "x");
    WriteFile("forbidden", "x");
    Lines told;
    {
        const CopyWatch watch([](const char* path) { return std::string(path) != "forbidden"; },
                              [&](const char* src, const char* dst, std::uint32_t error) {
                                  told.push_back(std::string(src) + ' ' + dst + ' ' + std::to_string(error));
                              });
        EXPECT_EQ(OsCopyFile("source", "copy"), 0U);
        EXPECT_EQ(OsCopyFile("forbidden", "copy2"), static_cast<std::uint32_t>(ELOOP));
        EXPECT_NE(OsCopyFile("missing", "copy3"), 0U);
        EXPECT_EQ(OsOpenDir("forbidden"), nullptr);
        EXPECT_EQ(errno, ELOOP);
    }
    EXPECT_EQ(Contents("copy"), "x");
    EXPECT_FALSE(std::filesystem::exists("copy2"));
    EXPECT_EQ(told, (Lines{"source copy 0", "missing copy3 " + std::to_string(ENOENT)}));
}

TEST(CopyWatchTest, IsForgottenWhenItIsGone) {
    const support::WorkingFolder work;
    WriteFile("source", "x");
    int asked = 0;
    {
        const CopyWatch watch([&](const char*) { return ++asked > 0; },
                              [&](const char*, const char*, std::uint32_t) { ++asked; });
    }
    EXPECT_EQ(OsCopyFile("source", "copy"), 0U);
    EXPECT_EQ(Contents("copy"), "x");
    OsDir* folder = OsOpenDir(".");
    EXPECT_NE(folder, nullptr);
    OsCloseDir(folder);
    EXPECT_EQ(asked, 0);
}

TEST(CopyWatchTest, AnExceptionRefusesThePath) {
    const support::WorkingFolder work;
    WriteFile("source", "x");
    const CopyWatch watch([](const char*) -> bool { throw std::bad_alloc(); },
                          [](const char*, const char*, std::uint32_t) {});
    testing::internal::CaptureStderr();
    EXPECT_EQ(OsCopyFile("source", "copy"), static_cast<std::uint32_t>(ELOOP));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a line or a path was lost: std::bad_alloc\n");
}

}  // namespace
