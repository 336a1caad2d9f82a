// The file appears under its name only when it is whole.
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "common/output_file.h"
#include "support/temp_folder.h"

using namespace ominspect;
using support::Contents;
using support::WriteFile;

namespace {

// What is brought to the disk, in order.
std::vector<std::string> g_synced;

// Why the file system cannot rename without replacing; 0 when it can.
int g_renameError = 0;

}  // namespace

// In the place of the C library's.
extern "C" int fsync(int fd) {
    g_synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)));
    return 0;
}

extern "C" int renameat2(int oldFolder, const char* oldPath, int newFolder, const char* newPath,
                         unsigned int flags) noexcept {
    if (g_renameError != 0) {
        errno = g_renameError;
        return -1;
    }
    return static_cast<int>(syscall(SYS_renameat2, oldFolder, oldPath, newFolder, newPath, flags));
}

namespace {

class OutputFileTest : public testing::Test {
protected:
    void SetUp() override { g_renameError = 0; }

    static std::unique_ptr<OutputFile> Create(const std::string& path, bool replace) {
        auto file = OutputFile::Create(path, replace);
        EXPECT_TRUE(file) << file.Failure().text;
        return file ? std::move(*file) : nullptr;
    }

    // The number of the error; 0 when the file could be made.
    static int CreateError(const std::string& path, bool replace) {
        const auto file = OutputFile::Create(path, replace);
        return file ? 0 : file.Failure().number;
    }

    std::size_t Entries() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(work_.Path()), {}));
    }

    const support::WorkingFolder work_;
};

TEST_F(OutputFileTest, AppearsWhenItIsWholeAndForItsOwnerOnly) {
    auto file = Create("out", false);
    ASSERT_NE(file, nullptr);
    ASSERT_FALSE(file->Write("whole"));
    EXPECT_FALSE(std::filesystem::exists("out"));
    ASSERT_FALSE(file->Commit());
    file.reset();
    EXPECT_EQ(Contents("out"), "whole");
    EXPECT_EQ(Entries(), 1U);
    struct stat status {};
    ASSERT_EQ(stat("out", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(OutputFileTest, IsOnTheDiskWithItsNameUnlessThatTakesTooLong) {
    const std::string here = std::filesystem::canonical(work_.Path());
    std::filesystem::create_directory("below");
    for (const auto& [path, folder] : {std::pair("out", here), std::pair("below/out", here + "/below")}) {
        auto file = Create(path, false);
        ASSERT_NE(file, nullptr);
        const std::string temporary = std::filesystem::canonical(file->TemporaryPath());
        g_synced.clear();
        ASSERT_FALSE(file->Commit());
        EXPECT_EQ(g_synced, (std::vector<std::string>{temporary, folder}));
    }
    g_synced.clear();
    EXPECT_FALSE(ReplaceFile("out", "new"));
    EXPECT_EQ(g_synced, std::vector<std::string>());
}

TEST_F(OutputFileTest, DoesNotReplaceOnAFileSystemThatKnowsOnlyLinks) {
    for (const int why : {EINVAL, ENOSYS}) {
        g_renameError = why;
        auto file = Create("out", false);
        ASSERT_NE(file, nullptr);
        ASSERT_FALSE(file->Write("whole"));
        EXPECT_FALSE(file->Commit());
        EXPECT_EQ(Contents("out"), "whole");
        EXPECT_EQ(Entries(), 1U) << "the temporary name is gone";
        ASSERT_TRUE(std::filesystem::remove("out"));
        file = Create("out", false);
        ASSERT_NE(file, nullptr);
        WriteFile("out", "somebody else's");
        const auto taken = file->Commit();
        ASSERT_TRUE(taken);
        EXPECT_EQ(taken->number, EEXIST);
        file.reset();
        EXPECT_EQ(Contents("out"), "somebody else's");
        EXPECT_EQ(Entries(), 1U);
        ASSERT_TRUE(std::filesystem::remove("out"));
    }
    g_renameError = EROFS;
    auto file = Create("out", false);
    ASSERT_NE(file, nullptr);
    const auto error = file->Commit();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->number, EROFS);
    EXPECT_FALSE(std::filesystem::exists("out")) << "another error is none of the call that is missing";
}

// The name may be another file's by then.
TEST_F(OutputFileTest, LeavesItsTemporaryNameAloneAfterCommit) {
    auto file = Create("out", false);
    ASSERT_EQ(Entries(), 1U);
    const std::string temporary = std::filesystem::directory_iterator(work_.Path())->path();
    ASSERT_FALSE(file->Commit());
    WriteFile(temporary, "another's");
    file.reset();
    EXPECT_EQ(Contents(temporary), "another's");
}

TEST_F(OutputFileTest, LeavesNothingBehindWithoutCommit) {
    auto file = Create("out", false);
    ASSERT_FALSE(file->Write("half"));
    EXPECT_EQ(Entries(), 1U);
    file.reset();
    EXPECT_EQ(Entries(), 0U);
}

TEST_F(OutputFileTest, DoesNotReplaceAFileUnlessAsked) {
    WriteFile("out", "old");
    EXPECT_EQ(CreateError("out", false), EEXIST);
    auto file = Create("out", true);
    ASSERT_NE(file, nullptr);
    ASSERT_FALSE(file->Write("new"));
    EXPECT_EQ(Contents("out"), "old");
    ASSERT_FALSE(file->Commit());
    EXPECT_EQ(Contents("out"), "new");
    EXPECT_EQ(Entries(), 1U);
}

TEST_F(OutputFileTest, DoesNotReplaceAFileThatCameMeanwhile) {
    auto file = Create("out", false);
    ASSERT_NE(file, nullptr);
    WriteFile("out", "somebody else's");
    const auto error = file->Commit();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->number, EEXIST);
    EXPECT_EQ(error->text, "File exists");
    file.reset();
    EXPECT_EQ(Contents("out"), "somebody else's");
    EXPECT_EQ(Entries(), 1U);
}

TEST_F(OutputFileTest, DoesNotWriteThroughALink) {
    WriteFile("target", "old");
    std::filesystem::create_symlink("target", "out");
    EXPECT_EQ(CreateError("out", false), EEXIST);
    auto file = Create("out", true);
    ASSERT_NE(file, nullptr);
    ASSERT_FALSE(file->Commit());
    EXPECT_EQ(Contents("target"), "old");
    EXPECT_FALSE(std::filesystem::is_symlink("out"));
}

TEST_F(OutputFileTest, RefusesAFolderAndAMissingFolder) {
    EXPECT_EQ(CreateError(work_.Path(), true), EISDIR);
    EXPECT_EQ(CreateError("missing/out", false), ENOENT);
    EXPECT_NE(CreateError("/proc/out", false), 0) << "where not even root makes files";
}

TEST_F(OutputFileTest, TellsThatTheFileMayNotGrow) {
    ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit tight{100, before.rlim_max};
    auto file = Create("out", false);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    const auto error = file->Write(std::string(200, 'x'));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->number, EFBIG);
}

TEST_F(OutputFileTest, KnowsItselfAndItsSize) {
    auto file = Create("out", false);
    ASSERT_NE(file, nullptr);
    ASSERT_FALSE(file->Write("four"));
    ASSERT_FALSE(file->Write("ty"));
    EXPECT_EQ(file->Size(), 6U);
    EXPECT_EQ(file->Path(), "out");
    ASSERT_FALSE(file->Commit());
    WriteFile("other", "");
    struct stat own {};
    struct stat other {};
    ASSERT_EQ(stat("out", &own), 0);
    ASSERT_EQ(stat("other", &other), 0);
    EXPECT_TRUE(file->IsSame(own));
    EXPECT_FALSE(file->IsSame(other));
}

TEST_F(OutputFileTest, ReplacesAWholeFileAtOnce) {
    EXPECT_FALSE(ReplaceFile("out", "new"));
    EXPECT_EQ(Contents("out"), "new");
    EXPECT_FALSE(ReplaceFile("out", "newer"));
    EXPECT_EQ(Contents("out"), "newer");
    EXPECT_EQ(Entries(), 1U);
    const auto error = ReplaceFile("missing/out", "");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->number, ENOENT);
}

}  // namespace
