// What stands before the platform's functions, and that it does theirs while nobody looks.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <new>
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
    testing::internal::CaptureStderr();  // where lines of no log go
    KivoOmLogModuleLogRecord(3, 0, "unit", 0, 0, "%s on", "later");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("later on"), std::string::npos);
    EXPECT_EQ(lines, (Lines{"3 text 7"}));
}

// Answers with a number that is no file system's; an opened folder is the one that it was told.
class Stranger final : public FileCalls {
public:
    static constexpr std::uint32_t kAnswer = 4711;

    std::uint32_t Copy(const char* src, const char* dst) override {
        return Note(std::string("copy ") + src + ' ' + dst);
    }
    OsDir* OpenFolder(const char* path) override {
        (void)Note(std::string("open ") + path);
        return platform::OpenDir(path);
    }
    dirent* ReadFolder(OsDir* /*folder*/) override {
        (void)Note("read");
        return nullptr;
    }
    std::uint32_t CloseFolder(OsDir* folder) override { return Note("close") + platform::CloseDir(folder); }
    std::uint32_t MakeFolder(const char* path, std::uint32_t mode) override {
        return Note(std::string("make ") + path + ' ' + std::to_string(mode));
    }
    std::uint32_t RemoveFolder(const char* path) override { return Note(std::string("remove folder ") + path); }
    std::uint32_t RemoveFile(const char* path) override { return Note(std::string("remove ") + path); }

    Lines calls;

private:
    std::uint32_t Note(const std::string& call) {
        if (call.ends_with("throw")) {
            throw std::bad_alloc();
        }
        calls.push_back(call);
        return kAnswer;
    }
};

TEST(FileCallsTest, AreAnsweredByWhatIsInstalled) {
    const support::WorkingFolder work;
    Stranger calls;
    EXPECT_EQ(OsCopyFile("a", "b"), Stranger::kAnswer);
    OsDir* folder = OsOpenDir(".");
    EXPECT_EQ(OsReadDir(folder), nullptr);
    EXPECT_EQ(OsCloseDir(folder), Stranger::kAnswer);
    EXPECT_EQ(OsMkDir("m", 7), Stranger::kAnswer);
    EXPECT_EQ(OsRmDir("d"), Stranger::kAnswer);
    EXPECT_EQ(OsRemove("f"), Stranger::kAnswer);
    EXPECT_EQ(calls.calls, (Lines{"copy a b", "open .", "read", "close", "make m 7", "remove folder d", "remove f"}));
}

TEST(FileCallsTest, ArePlatformsWhileNothingIsInstalled) {
    const support::WorkingFolder work;
    { const Stranger gone; }
    WriteFile("source", "x");
    EXPECT_EQ(OsCopyFile("source", "copy"), 0U);
    EXPECT_EQ(Contents("copy"), "x");
    EXPECT_EQ(OsRemove("copy"), 0U);
    EXPECT_NE(OsAccess("copy", 0), 0U);
    EXPECT_EQ(OsMkDir("folder", 0700), 0U);
    OsDir* folder = OsOpenDir("folder");
    ASSERT_NE(folder, nullptr);
    EXPECT_NE(OsReadDir(folder), nullptr);
    EXPECT_EQ(OsCloseDir(folder), 0U);
    EXPECT_EQ(OsRmDir("folder"), 0U);
    EXPECT_FALSE(std::filesystem::exists("folder"));
}

TEST(FileCallsTest, AnExceptionIsAnError) {
    Stranger calls;
    testing::internal::CaptureStderr();
    EXPECT_EQ(OsCopyFile("a", "throw"), static_cast<std::uint32_t>(EIO));
    EXPECT_EQ(OsOpenDir("throw"), nullptr);
    EXPECT_EQ(errno, EIO);
    const std::string line = "a line or a path was lost: std::bad_alloc\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line);
}

TEST(FileCallsTest, OnlyTheStepForTheTimesIsLeftOut) {
    const support::WorkingFolder work;
    WriteFile("source", "x");
    {
        const Stranger calls;
        EXPECT_EQ(std::system("touch -r source made"), 0);  // NOLINT(cert-env33-c): what is tested
        EXPECT_FALSE(std::filesystem::exists("made"));
        EXPECT_EQ(std::system("touch other; exit 3"), 3 << 8);  // NOLINT(cert-env33-c)
        EXPECT_TRUE(std::filesystem::exists("other"));
    }
    EXPECT_EQ(std::system("touch -r source made"), 0);  // NOLINT(cert-env33-c)
    EXPECT_TRUE(std::filesystem::exists("made"));
}

}  // namespace
