// Copying of paths, files and directories, on real trees.
#include <sys/stat.h>

#include <algorithm>

#include "ominspect/collect.h"
#include "support/device_folder.h"
#include "support/journal_text.h"

using support::Lines;
using support::LogLines;
namespace fs = std::filesystem;

namespace {

class InspectCopyTest : public support::DeviceTest {
protected:
    // A collection without a time limit.
    InspectCopyTest() { m_config.running = true; }

    // Whether two files have the same time stamp.
    static bool SameTime(const char* a, const char* b) { return fs::last_write_time(a) == fs::last_write_time(b); }

    static void MakeOld(const char* path) {
        fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(100));
    }

    CollectConfig m_config;
};

}  // namespace

TEST_F(InspectCopyTest, OfADirectoryCopiesTheWholeTreeWithItsTimes) {
    Write("src/a.txt", "A");
    Write("src/deep/er/b.txt", "B");
    fs::create_directories("src/empty");
    MakeOld("src/a.txt");
    MakeOld("src/deep/er/b.txt");
    InspectCopyDirFile("src", "out/dst", m_config);
    EXPECT_EQ(Read("out/dst/a.txt"), "A");
    EXPECT_EQ(Read("out/dst/deep/er/b.txt"), "B");
    EXPECT_TRUE(fs::is_directory("out/dst/empty"));
    EXPECT_TRUE(SameTime("src/a.txt", "out/dst/a.txt"));
    EXPECT_TRUE(SameTime("src/deep/er/b.txt", "out/dst/deep/er/b.txt"));
    EXPECT_EQ(LogLines(), Lines{});
    EXPECT_TRUE(m_config.running);  // no timer was asked for
}

TEST_F(InspectCopyTest, OfADirectoryReplacesWhatStoodThere) {
    Write("src/new", "N");
    Write("dst/old", "O");
    Write("dst/sub/old", "O");
    InspectCopyDirFile("src", "dst", m_config);
    EXPECT_EQ(Read("dst/new"), "N");
    EXPECT_FALSE(fs::exists("dst/old"));
    EXPECT_FALSE(fs::exists("dst/sub"));
}

TEST_F(InspectCopyTest, OfADirectoryThatCannotBeOpenedLeavesAnEmptyDestination) {
    InspectCopyDirFile("missing", "dst", m_config);
    EXPECT_TRUE(fs::is_empty("dst"));
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: open dir fail!"});
}

TEST_F(InspectCopyTest, OfADirectoryThatCannotBeMadeSaysSo) {
    Write("src/a", "A");
    Write("file", "in the way");
    InspectCopyDirFile("src", "file/dst", m_config);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: Mkdir fail!"});
}

TEST_F(InspectCopyTest, OverADestinationThatCannotBeRemovedGoesOn) {
    Write("src/a", "A");
    ASSERT_EQ(mkfifo("dst", 0600), 0);
    InspectCopyDirFile("src", "dst", m_config);
    const Lines lines = LogLines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0], "1 InspectFile 15: unknow file type!");
    EXPECT_EQ(lines[1], "1 InspectFile 15: Remove dir fail");
}

TEST_F(InspectCopyTest, WithRunningFalseStopsAtTheFirstEntry) {
    Write("a-source/a", "A");
    m_config.running = false;
    InspectCopyDirFile("a-source", "the-destination", m_config);
    EXPECT_TRUE(fs::is_empty("the-destination"));
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: collection stopped by timer, [****]->[****tination] timeout."});
}

TEST_F(InspectCopyTest, WithRunningFalseAnEmptyFolderIsStoppedToo) {
    fs::create_directories("a-source");  // it has two entries, "." and ".."
    m_config.running = false;
    InspectCopyDirFile("a-source", "the-destination", m_config);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: collection stopped by timer, [****]->[****tination] timeout."});
}

TEST_F(InspectCopyTest, StartsItsTimerOnceAndClearsBothFlags) {
    Write("src/sub/a", "A");
    m_config.startTimer = true;
    m_config.timeout = 60;
    InspectCopyDirFile("src", "dst", m_config);
    EXPECT_EQ(Read("dst/sub/a"), "A");
    EXPECT_FALSE(m_config.startTimer);
    EXPECT_FALSE(m_config.running);
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyTest, AnEntryWhosePathDoesNotFitEndsItsDirectorySilently) {
    const std::string name(200, 'n');
    Write("src/" + name, "fits");
    const std::string deep = "d/" + std::string(60, 'x');
    fs::create_directories(deep);
    InspectCopyDirFile("src", deep.c_str(), m_config);  // 62 + 1 + 200 bytes
    EXPECT_TRUE(fs::is_empty(deep));
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyTest, APathOf255BytesFitsAndOneOf256DoesNot) {
    Write("s/" + std::string(250, 'n'), "x");
    InspectCopyDirFile("s", "dest", m_config);  // 4 + 1 + 250
    EXPECT_EQ(Read("dest/" + std::string(250, 'n')), "x");
    InspectCopyDirFile("s", "dest2", m_config);  // 5 + 1 + 250
    EXPECT_TRUE(fs::is_empty("dest2"));
}

TEST_F(InspectCopyTest, ANameWithADangerousCharacterIsCopiedWithItsOwnTime) {
    Write("source/a;b$c.txt", "X");
    MakeOld("source/a;b$c.txt");
    InspectCopyDirFile("source", "dest", m_config);
    EXPECT_EQ(Read("dest/a;b$c.txt"), "X");
    EXPECT_FALSE(SameTime("source/a;b$c.txt", "dest/a;b$c.txt"));
    EXPECT_EQ(LogLines(), (Lines{"1 InspectFile 15: file path contains danger char, skip!",
                                 "1 InspectFile 15: change file [****;b$c.txt]->[****;b$c.txt] time fail"}));
}

TEST_F(InspectCopyTest, ANameWithABlankIsCopied) {
    Write("source/a b", "X");
    InspectCopyDirFile("source", "dest", m_config);
    EXPECT_EQ(Read("dest/a b"), "X");
}

TEST_F(InspectCopyTest, ALinkToAFileIsCopiedAsAFileAndOneToADirectoryIsWalked) {
    Write("real/file", "F");
    fs::create_directories("src");
    fs::create_symlink("../real/file", "src/link");
    fs::create_symlink("../real", "src/dirlink");
    InspectCopyDirFile("src", "dst", m_config);
    EXPECT_FALSE(fs::is_symlink("dst/link"));
    EXPECT_EQ(Read("dst/link"), "F");
    EXPECT_EQ(Read("dst/dirlink/file"), "F");
}

TEST_F(InspectCopyTest, APipeInTheTreeIsReportedAndTheWalkGoesOn) {
    Write("source/zz", "Z");
    ASSERT_EQ(mkfifo("source/the-pipe", 0600), 0);
    InspectCopyDirFile("source", "dest", m_config);
    EXPECT_EQ(Read("dest/zz"), "Z");
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: copy file [****the-pipe]->[****the-pipe] fail!"});
}

TEST_F(InspectCopyTest, OfOnePathThatIsMissingIsAFileThatCannotBeCopied) {
    InspectDealCopy("missing-file", "destination", m_config);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: copy file [****ing-file]->[****tination] fail!"});
}

TEST_F(InspectCopyTest, OfOnePathStillSetsTheTimeAfterAFailedCopy) {
    fs::create_directories("out.folder");
    Write("source.txt", "S");
    MakeOld("source.txt");
    InspectDealCopy("source.txt", "out.folder", m_config);  // a file over a directory
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: copy file [****urce.txt]->[****t.folder] fail!"});
    EXPECT_TRUE(SameTime("source.txt", "out.folder"));
}

TEST_F(InspectCopyTest, OfOneFileMakesItsParentsAndOverwrites) {
    Write("source", "new and longer");
    Write("a/b/copy", "old");
    InspectCopyFile("source", "a/b/copy", m_config);
    InspectCopyFile("source", "c/d/copy", m_config);
    EXPECT_EQ(Read("a/b/copy"), "new and longer");
    EXPECT_EQ(Read("c/d/copy"), "new and longer");
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyTest, OfOneFileWithoutASlashInItsDestinationCopiesNothing) {
    Write("source", "S");
    InspectCopyFile("source", "copy", m_config);
    EXPECT_FALSE(fs::exists("copy"));
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: strrchr fail!"});
}

TEST_F(InspectCopyTest, OfOneFileWhoseParentCannotBeMadeGoesOn) {
    Write("source.txt", "S");
    Write("file", "in the way");
    InspectCopyFile("source.txt", "file/dir/copy", m_config);
    const Lines lines = LogLines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "1 InspectFile 15: InspectMkdirMulti ret = 20!");  // ENOTDIR
    EXPECT_EQ(lines[1], "1 InspectFile 15: copy file [****urce.txt]->[****dir/copy] fail!");
}

TEST_F(InspectCopyTest, OfTheSystemLogIsADirectoryCopyWithTheDefaultHook) {
    Write("src/a", "A");
    InspectCopyWylogsFile("src", "dst", m_config);
    EXPECT_EQ(Read("dst/a"), "A");
    EXPECT_EQ(LogLines(), Lines{"3 InspectFile 15: InspectCopyWylogsFile start"});
}

TEST(HooksTest, DoNothingByDefault) {
    EXPECT_EQ(InspectCollectVendorLog(), 0);
    EXPECT_FALSE(InspectIsNeedBackupWylog());
}
