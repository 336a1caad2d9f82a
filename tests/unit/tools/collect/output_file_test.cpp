// The package's file: under its name only when it is whole.
#include <cerrno>
#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>

#include "collect/output_file.h"
#include "support/process_state.h"
#include "support/work_folder.h"

using namespace ominspect::collect;
using support::Contents;

namespace {

class Output : public support::InWorkFolder {
protected:
    std::unique_ptr<OutputFile> Create(const std::string& path, bool replace) {
        return OutputFile::Create(path, replace, error_);
    }

    std::size_t Entries() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder_), {}));
    }

    int error_ = 0;
};

TEST_F(Output, AppearsWhenItIsWholeAndForItsOwnerOnly) {
    auto file = Create("out", false);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(file->Write("whole", 5), 0);
    EXPECT_FALSE(std::filesystem::exists("out"));
    ASSERT_EQ(file->Commit(), 0);
    file.reset();
    EXPECT_EQ(Contents("out"), "whole");
    EXPECT_EQ(Entries(), 1U);
    struct stat status {};
    ASSERT_EQ(stat("out", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Output, LeavesNothingBehindWithoutCommit) {
    auto file = Create("out", false);
    ASSERT_EQ(file->Write("half", 4), 0);
    EXPECT_EQ(Entries(), 1U);
    file.reset();
    EXPECT_EQ(Entries(), 0U);
}

TEST_F(Output, DoesNotReplaceAFileUnlessAsked) {
    Write("out", "old");
    EXPECT_EQ(Create("out", false), nullptr);
    EXPECT_EQ(error_, EEXIST);
    auto file = Create("out", true);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(file->Write("new", 3), 0);
    EXPECT_EQ(Contents("out"), "old");
    ASSERT_EQ(file->Commit(), 0);
    EXPECT_EQ(Contents("out"), "new");
    EXPECT_EQ(Entries(), 1U);
}

TEST_F(Output, DoesNotReplaceAFileThatCameMeanwhile) {
    auto file = Create("out", false);
    ASSERT_NE(file, nullptr);
    Write("out", "somebody else's");
    EXPECT_EQ(file->Commit(), EEXIST);
    file.reset();
    EXPECT_EQ(Contents("out"), "somebody else's");
    EXPECT_EQ(Entries(), 1U);
}

TEST_F(Output, DoesNotWriteThroughALink) {
    Write("target", "old");
    std::filesystem::create_symlink("target", "out");
    EXPECT_EQ(Create("out", false), nullptr);
    EXPECT_EQ(error_, EEXIST);
    auto file = Create("out", true);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(file->Commit(), 0);
    EXPECT_EQ(Contents("target"), "old");
    EXPECT_FALSE(std::filesystem::is_symlink("out"));
}

TEST_F(Output, RefusesAFolderAndAMissingFolder) {
    EXPECT_EQ(Create(folder_, true), nullptr);
    EXPECT_EQ(error_, EISDIR);
    EXPECT_EQ(Create("missing/out", false), nullptr);
    EXPECT_EQ(error_, ENOENT);
    EXPECT_EQ(Create("/proc/out", false), nullptr);  // where not even root makes files
    EXPECT_NE(error_, 0);
}

TEST_F(Output, TellsThatTheFileMayNotGrow) {
    ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit tight{100, before.rlim_max};
    auto file = Create("out", false);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    const int error = file->Write(std::string(200, 'x').data(), 200);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(error, EFBIG);
}

}  // namespace
