// The file appears under its name only when it is whole.
#include <cerrno>
#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "common/output_file.h"
#include "support/temp_folder.h"

using namespace ominspect;
using support::Contents;
using support::WriteFile;

namespace {

class OutputFileTest : public testing::Test {
protected:
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
