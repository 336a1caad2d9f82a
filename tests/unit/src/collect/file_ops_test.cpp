// The file-system operations under the copy functions.
#include "collect/file_ops.h"

#include <sys/stat.h>

#include "support/device_folder.h"
#include "support/journal_text.h"

using support::Lines;
using support::LogLines;
namespace fs = std::filesystem;

namespace {

class FileOpsTest : public support::DeviceTest {};

unsigned ModeOf(const char* path) {
    return static_cast<unsigned>(fs::status(path).permissions());
}

}  // namespace

TEST_F(FileOpsTest, MkdirMakesEveryMissingParentWithMode0770) {
    fs::create_directories("a");
    EXPECT_EQ(InspectMkdirMulti("a/b/c"), 0);
    EXPECT_EQ(ModeOf("a/b"), 0770U);
    EXPECT_EQ(ModeOf("a/b/c"), 0770U);
    EXPECT_EQ(InspectMkdirMulti((m_working / "x/y").c_str()), 0);
    EXPECT_TRUE(fs::is_directory("x/y"));
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(FileOpsTest, MkdirLeavesAnExistingPathAlone) {
    fs::create_directories("a");
    fs::permissions("a", fs::perms(0700));
    EXPECT_EQ(InspectMkdirMulti("a"), 0);
    EXPECT_EQ(ModeOf("a"), 0700U);
    Write("file", "F");
    fs::permissions("file", fs::perms(0600));
    EXPECT_EQ(InspectMkdirMulti("file"), 0);  // whatever it is
}

TEST_F(FileOpsTest, MkdirTakesAPathWithASlashAtItsEnd) {
    EXPECT_EQ(InspectMkdirMulti("a/b/"), 0);
    EXPECT_EQ(ModeOf("a/b"), 0770U);
}

TEST_F(FileOpsTest, MkdirOfANullPathSaysSo) {
    EXPECT_EQ(InspectMkdirMulti(nullptr), 1);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: null path!"});
}

TEST_F(FileOpsTest, MkdirBelowAFileFails) {
    Write("file", "");
    EXPECT_NE(InspectMkdirMulti("file/dir"), 0);
}

TEST_F(FileOpsTest, RemoveTakesAFileAndATree) {
    Write("file", "x");
    Write("tree/a/b/c", "x");
    Write("tree/d", "x");
    EXPECT_EQ(InspectRemovePath("file"), 0);
    EXPECT_EQ(InspectRemovePath("tree"), 0);
    EXPECT_FALSE(fs::exists("file"));
    EXPECT_FALSE(fs::exists("tree"));
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(FileOpsTest, RemoveOfAMissingPathSaysNullPath) {
    EXPECT_EQ(InspectRemovePath("missing"), 1);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: null path!"});
}

TEST_F(FileOpsTest, RemoveRefusesAPipeAndATreeThatHoldsOne) {
    fs::create_directories("tree");
    ASSERT_EQ(mkfifo("tree/pipe", 0600), 0);
    EXPECT_EQ(InspectRemovePath("tree/pipe"), 1);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: unknow file type!"});
    EXPECT_NE(InspectRemovePath("tree"), 0);
    EXPECT_TRUE(fs::exists("tree/pipe"));
}

TEST_F(FileOpsTest, ChangeTimeCopiesTheTimeStamps) {
    Write("src", "");
    Write("dst", "");
    fs::last_write_time("src", fs::file_time_type::clock::now() - std::chrono::hours(5));
    EXPECT_EQ(InspectChangeFileTime("src", "dst"), 0);
    EXPECT_EQ(fs::last_write_time("src"), fs::last_write_time("dst"));
}

TEST_F(FileOpsTest, ChangeTimeOfAMissingDestinationRunsNothing) {
    EXPECT_EQ(InspectChangeFileTime("missing", "missing-too"), 0);
    EXPECT_FALSE(fs::exists("missing-too"));
}

TEST_F(FileOpsTest, ChangeTimeFromAMissingSourceFails) {
    Write("dst", "");
    EXPECT_EQ(InspectChangeFileTime("missing", "dst"), 1);
}

TEST_F(FileOpsTest, ChangeTimeLooksAtBothPathsForDangerousCharacters) {
    Write("dst", "");
    EXPECT_EQ(InspectChangeFileTime("a;touch hacked", "dst"), 1);
    EXPECT_EQ(InspectChangeFileTime("dst", "a;touch hacked"), 1);
    EXPECT_FALSE(fs::exists("hacked"));
    EXPECT_EQ(LogLines(), Lines(2, "1 InspectFile 15: file path contains danger char, skip!"));
}

TEST_F(FileOpsTest, ChangeTimeOfPathsThatDoNotFitTheCommandSaysSo) {
    EXPECT_EQ(InspectChangeFileTime(std::string(256, 's').c_str(), std::string(257, 'd').c_str()), 1);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: sprintf_s fail"});
    // "touch -r ", a blank, 512 bytes and the NUL: it fits, and there is no such file
    EXPECT_EQ(InspectChangeFileTime(std::string(256, 's').c_str(), std::string(256, 'd').c_str()), 0);
}

TEST_F(FileOpsTest, IsDirFollowsLinksAndDoubtsTheUnreadable) {
    fs::create_directories("dir");
    Write("file", "");
    fs::create_symlink("dir", "link");
    EXPECT_TRUE(InspectIsDir("dir"));
    EXPECT_TRUE(InspectIsDir("link"));
    EXPECT_FALSE(InspectIsDir("file"));
    EXPECT_FALSE(InspectIsDir("missing"));
}

TEST_F(FileOpsTest, JoinFitsUpTo255Bytes) {
    PathBuffer out;
    EXPECT_TRUE(JoinPath(out, "dir", std::string(251, 'n').c_str()));
    EXPECT_EQ(std::string(out.data()), "dir/" + std::string(251, 'n'));
    EXPECT_FALSE(JoinPath(out, "dir", std::string(252, 'n').c_str()));
}

TEST_F(FileOpsTest, JoinClearsTheRestOfTheBuffer) {
    PathBuffer out;
    out.fill('x');
    EXPECT_TRUE(JoinPath(out, "dir", "name"));
    PathBuffer expected{"dir/name"};
    EXPECT_EQ(out, expected);
}
