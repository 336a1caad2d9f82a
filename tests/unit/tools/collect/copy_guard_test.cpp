// What stands between the copy functions and the file system: which calls it refuses, and with which number.
#include "collect/copy_guard.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/prctl.h>
#include <sys/stat.h>

#include "support/forked.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::collect;
using support::WriteFile;
using Lines = std::vector<std::string>;
namespace fs = std::filesystem;

namespace {

class CopyGuardTest : public testing::Test {
protected:
    CopyGuardTest() {
        WriteFile("source/file", "12345");
        WriteFile("area/copy/old", "old");
        WriteFile("area/other/file", "another's");
        WriteFile("outside/file", "outside");
        rules_.area = work_ / "area";
        guard_.emplace(work_ / "source", work_ / "area/copy", rules_, counts_,
                       [this](const std::string& path, const std::string& reason) {
                           told_.push_back(path.substr(work_.Path().string().size() + 1) + ": " + reason);
                       });
        errno = 0;  // a refusal that does not set it would look like a success
    }

    std::uint32_t Copy(const std::string& from, const std::string& to) {
        return guard_->Copy((work_ / from).c_str(), (work_ / to).c_str());
    }
    std::uint32_t Make(const std::string& path) { return guard_->MakeFolder((work_ / path).c_str(), 0755); }
    std::uint32_t RemoveFile(const std::string& path) { return guard_->RemoveFile((work_ / path).c_str()); }
    std::uint32_t RemoveFolder(const std::string& path) { return guard_->RemoveFolder((work_ / path).c_str()); }

    // Whether the folder opens; else the number of the error.
    int Open(const std::string& path) {
        errno = 0;
        OsDir* folder = guard_->OpenFolder((work_ / path).c_str());
        if (folder == nullptr) {
            return errno;
        }
        EXPECT_EQ(guard_->CloseFolder(folder), 0U);
        return 0;
    }

    // What a folder shows.
    Lines Names(const std::string& path) {
        OsDir* folder = guard_->OpenFolder((work_ / path).c_str());
        EXPECT_NE(folder, nullptr);
        Lines names;
        while (const dirent* entry = guard_->ReadFolder(folder)) {
            names.emplace_back(static_cast<const char*>(entry->d_name));
        }
        EXPECT_EQ(guard_->CloseFolder(folder), 0U);
        std::erase_if(names, [](const std::string& name) { return name.starts_with('.'); });
        return names;
    }

    const support::WorkingFolder work_;
    CopyRules rules_;
    CopyCounts counts_;
    Lines told_;
    std::optional<CopyGuard> guard_;
};

TEST_F(CopyGuardTest, CopiesAndMakesFoldersAtTheDestination) {
    EXPECT_EQ(Make("area/copy/new"), 0U);
    EXPECT_EQ(Make("area/copy/new/deep"), 0U);
    EXPECT_EQ(Copy("source/file", "area/copy/new/deep/file"), 0U);
    EXPECT_EQ(support::Contents("area/copy/new/deep/file"), "12345");
    EXPECT_EQ(counts_.files, 1U);
    EXPECT_EQ(counts_.bytes, 5U);
    EXPECT_STREQ(counts_.current.data(), "");
    EXPECT_EQ(told_, Lines{});
    EXPECT_EQ(RemoveFile("area/copy/old"), 0U);
    EXPECT_EQ(RemoveFile("area/copy/new/deep/file"), 0U);
    EXPECT_EQ(RemoveFolder("area/copy/new/deep"), 0U);
    EXPECT_FALSE(fs::exists("area/copy/old"));
    EXPECT_FALSE(fs::exists("area/copy/new/deep"));
}

TEST_F(CopyGuardTest, ChangesNothingBesideTheDestination) {
    for (const char* path : {"area/other/file", "outside/file", "area/copy/../other/file", "area/copying"}) {
        errno = 0;
        EXPECT_EQ(Copy("source/file", path), static_cast<std::uint32_t>(EPERM)) << path;
        errno = 0;
        EXPECT_EQ(RemoveFile(path), static_cast<std::uint32_t>(EPERM)) << path;
        errno = 0;
        EXPECT_EQ(RemoveFolder(path), static_cast<std::uint32_t>(EPERM)) << path;
    }
    EXPECT_EQ(support::Contents("area/other/file"), "another's");
    EXPECT_EQ(support::Contents("outside/file"), "outside");
    EXPECT_FALSE(fs::exists("area/copying"));
    EXPECT_EQ(told_, Lines(4, "source/file: Operation not permitted"));
    EXPECT_EQ(counts_.files, 0U);
    EXPECT_STREQ(counts_.current.data(), "");
}

// The copy functions make the folders on the way to the destination, too.
TEST_F(CopyGuardTest, MakesFoldersInTheAreaOnly) {
    EXPECT_EQ(Make("area/beside"), 0U);
    for (const char* path : {"area", "area/", "area/.", "area/..", "area/copy/../new", "outside/new", "areas"}) {
        errno = 0;
        EXPECT_EQ(Make(path), static_cast<std::uint32_t>(EPERM)) << path;
    }
    EXPECT_FALSE(fs::exists("area/new"));
    EXPECT_FALSE(fs::exists("outside/new"));
    EXPECT_FALSE(fs::exists("areas"));
}

// The platform may give the next folder the handle of one that was closed.
TEST_F(CopyGuardTest, WhatIsExcludedIsPassedOverInTheSourceOnly) {
    rules_.exclude = {"old", "file"};
    EXPECT_EQ(Names("source"), Lines{});
    EXPECT_EQ(Names("area/copy"), Lines{"old"});
}

TEST_F(CopyGuardTest, TellsWhatIsNoFileFromWhatIsRefused) {
    ASSERT_EQ(mkfifo("source/pipe", 0600), 0);
    EXPECT_EQ(Copy("source/pipe", "area/copy/pipe"), static_cast<std::uint32_t>(EINVAL));
    EXPECT_EQ(Copy("source/pipe", "outside/pipe"), static_cast<std::uint32_t>(EPERM));
    EXPECT_EQ(told_, (Lines{"source/pipe: not a regular file", "source/pipe: Operation not permitted"}));
}

TEST_F(CopyGuardTest, ADryRunSucceedsAndChangesNothing) {
    rules_.dryRun = true;
    EXPECT_EQ(Make("area/copy/new"), 0U);
    EXPECT_EQ(Copy("source/file", "area/copy/file"), 0U);
    EXPECT_EQ(RemoveFile("area/copy/old"), 0U);
    EXPECT_EQ(RemoveFolder("area/copy"), 0U);
    EXPECT_EQ(Names("area/copy"), Lines{"old"});
    EXPECT_EQ(counts_.files, 1U);
}

TEST_F(CopyGuardTest, AnEmptyFileFitsWhereNothingElseDoes) {
    rules_.bytesLeft = 5;
    WriteFile("source/empty", "");
    WriteFile("source/small", "x");
    EXPECT_EQ(Copy("source/file", "area/copy/file"), 0U);
    EXPECT_EQ(Copy("source/empty", "area/copy/empty"), 0U);
    EXPECT_EQ(Copy("source/small", "area/copy/small"), static_cast<std::uint32_t>(EFBIG));
    EXPECT_EQ(told_, Lines{"source/small: beyond the size limit"});
}

// Where it was not there, nobody can say what lies inside it.
TEST_F(CopyGuardTest, OfASourceThatComesLaterNothingIsRead) {
    guard_.reset();
    guard_.emplace(work_ / "late", work_ / "area/copy", rules_, counts_,
                   [](const std::string& /*path*/, const std::string& /*reason*/) {});
    WriteFile("late/file", "x");
    EXPECT_EQ(Copy("late/file", "area/copy/file"), static_cast<std::uint32_t>(ELOOP));
    EXPECT_EQ(Open("late"), ELOOP);
    EXPECT_FALSE(fs::exists("area/copy/file"));
}

TEST_F(CopyGuardTest, AnOldCopyThatCannotBeRemovedIsTold) {
    EXPECT_EQ(support::InForkedChild([this]() -> Lines {
                  (void)chmod("area/copy", 0555);
                  support::BecomeNobodyWith(work_.Path());
                  (void)prctl(PR_SET_DUMPABLE, 1);  // else /proc/self is closed to who gave up rights
                  guard_->Clear();
                  (void)chmod("area/copy", 0755);
                  return told_;
              }),
              Lines{"area/copy: the old copy cannot be removed: Permission denied"});
}

TEST_F(CopyGuardTest, OpensNoFolderThroughALinkThatLeadsOutOrInCircles) {
    fs::create_directory_symlink(work_ / "outside", "source/out");
    fs::create_directory(work_ / "source/sub");
    fs::create_directory_symlink(work_ / "source", "source/sub/circle");
    fs::create_directory_symlink(work_ / "outside", "area/copy/out");
    EXPECT_EQ(Open("source"), 0);
    EXPECT_EQ(Open("source/sub"), 0);
    EXPECT_EQ(Open("area/copy"), 0);
    EXPECT_EQ(Open("source/out"), ELOOP);
    EXPECT_EQ(Open("source/sub/circle"), ELOOP);
    EXPECT_EQ(Open("source/missing"), ENOENT);
    EXPECT_NE(Open("area/copy/out"), 0);
    EXPECT_EQ(told_, (Lines{"source/out: a link that leads out of the source",
                            "source/sub/circle: a link to a folder that it lies in"}));
}

}  // namespace
