// Copying of trees that are deep, wide, closed, or led in circles.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "support/forked.h"
#include "support/journal_text.h"
#include "tree_test.h"

using support::Lines;
using support::LogLines;
namespace fs = std::filesystem;

namespace {

class InspectCopyShapeTest : public support::TreeTest {
protected:
    static std::string Repeat(const std::string& text, int times) {
        std::string repeated;
        for (int i = 0; i < times; ++i) {
            repeated += text;
        }
        return repeated;
    }

    // Copies src, with one file in it, to dst, either of which may have any length.
    void CopyNamed(const std::string& src, const std::string& dst, const std::string& name, bool fits) {
        SCOPED_TRACE(std::to_string(src.size() + 1 + name.size()) + " to " +
                     std::to_string(dst.size() + 1 + name.size()));
        Write(src + "/" + name, "x");
        Copy(src, dst);
        EXPECT_EQ(Below(dst), fits ? Lines{name} : Lines{});
        fs::remove_all(src);
        fs::remove_all(dst);
    }
};

}  // namespace

TEST_F(InspectCopyShapeTest, ADeepTreeIsCopiedDownTo255Bytes) {
    for (int level = 0; level <= 150; ++level) {
        Write("src/" + Repeat("d/", level) + "f", "file");
    }
    Copy("src", "dst");
    Lines expected;
    for (int level = 1; level <= 126; ++level) {  // "dst" and 126 times "/d": 255 bytes
        expected.push_back(Repeat("d/", level));
    }
    for (int level = 0; level <= 125; ++level) {
        expected.push_back(Repeat("d/", level) + "f");
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(Below("dst"), expected);
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyShapeTest, AWideTreeIsCopiedWhole) {
    for (int i = 0; i < 2000; ++i) {
        Write("src/file" + std::to_string(i), "contents " + std::to_string(i));
    }
    Copy("src", "dst");
    EXPECT_EQ(Below("dst").size(), 2000U);
    for (int i = 0; i < 2000; ++i) {
        EXPECT_EQ(Read("dst/file" + std::to_string(i)), "contents " + std::to_string(i));
    }
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyShapeTest, AJoinedPathOfMoreThan255BytesIsNotCopiedWhicheverSideItIsOn) {
    const std::string name(250, 'n');
    CopyNamed("s", "ddd", name, true);      // 254
    CopyNamed("s", "dddd", name, true);     // 255
    CopyNamed("s", "ddddd", name, false);   // 256
    CopyNamed("s", "dddddd", name, false);  // 257
    CopyNamed("sss", "d", name, true);
    CopyNamed("ssss", "d", name, true);
    CopyNamed("sssss", "d", name, false);
    CopyNamed("ssssss", "d", name, false);
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyShapeTest, AnEntryThatDoesNotFitEndsItsDirectoryAndNoOther) {
    const std::string tooLong(253, 'x');
    for (int i = 0; i < 30; ++i) {
        Write("src/sub/file" + std::to_string(i), "x");
    }
    Write("src/sub/" + tooLong, "x");
    Write("src/beside/file", "x");
    Lines expected{"beside/", "beside/file", "sub/"};
    for (const auto& entry : fs::directory_iterator("src/sub")) {
        if (entry.path().filename() == tooLong) {
            break;
        }
        expected.push_back("sub/" + entry.path().filename().string());
    }
    std::sort(expected.begin(), expected.end());
    Copy("src", "dst");
    EXPECT_EQ(Below("dst"), expected);
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyShapeTest, ALinkToItsParentIsFollowedDownTo255Bytes) {
    Write("src/f", "file");
    fs::create_directories("src/sub");
    fs::create_symlink("..", "src/sub/up");
    Copy("src", "dst");
    Lines expected;
    for (int round = 0; round < 36; ++round) {  // "dst" and 36 times "/sub/up": 255 bytes
        const std::string here = Repeat("sub/up/", round);
        expected.insert(expected.end(), {here + "f", here + "sub/", here + "sub/up/"});
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(Below("dst"), expected);
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyShapeTest, ALinkToItsOwnDirectoryIsFollowedAsOftenAsTheSystemFollowsLinks) {
    Write("src/f", "file");
    fs::create_symlink(".", "src/loop");
    Copy("src", "dst");
    Lines expected;
    for (int round = 0; round <= 40; ++round) {
        expected.push_back(Repeat("loop/", round) + "f");
        if (round > 0) {
            expected.push_back(Repeat("loop/", round));
        }
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(Below("dst"), expected);
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: copy file [****oop/loop]->[****oop/loop] fail!"});
}

TEST_F(InspectCopyShapeTest, ADestinationInsideItsSourceEndsAt255Bytes) {
    Write("src/f", "file");
    Copy("src", "src/out");
    EXPECT_EQ(Read("src/f"), "file");
    EXPECT_EQ(Read("src/out/f"), "file");
    EXPECT_TRUE(fs::is_directory("src" + Repeat("/out", 63)));  // 255 bytes
    EXPECT_FALSE(fs::exists("src" + Repeat("/out", 64)));
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyShapeTest, WhatIsNoFileIsReportedAndLeftOut) {
    Write("src/file", "x");
    fs::create_symlink("missing", "src/dangling");
    fs::create_symlink("circle_2", "src/circle_1");
    fs::create_symlink("circle_1", "src/circle_2");
    ASSERT_EQ(mkfifo("src/the_pipe", 0600), 0);
    const int socketFd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, "src/the_socket"};
    ASSERT_EQ(bind(socketFd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(socketFd);
    Copy("src", "dst");
    EXPECT_EQ(Below("dst"), Lines{"file"});
    EXPECT_EQ(SortedLog(), (Lines{"1 InspectFile 15: copy file [****circle_1]->[****circle_1] fail!",
                                  "1 InspectFile 15: copy file [****circle_2]->[****circle_2] fail!",
                                  "1 InspectFile 15: copy file [****dangling]->[****dangling] fail!",
                                  "1 InspectFile 15: copy file [****e_socket]->[****e_socket] fail!",
                                  "1 InspectFile 15: copy file [****the_pipe]->[****the_pipe] fail!"}));
}

TEST_F(InspectCopyShapeTest, ADanglingLinkAtTheDestinationStaysBesideTheCopy) {
    Write("src/file", "new");
    Write("dst/file", "old");
    fs::create_symlink("missing", "dst/dangling");
    Copy("src", "dst");
    EXPECT_EQ(Below("dst"), (Lines{"dangling", "file"}));
    EXPECT_EQ(Read("dst/file"), "new");
    EXPECT_EQ(LogLines(), (Lines{"1 InspectFile 15: null path!", "1 InspectFile 15: Remove dir fail"}));
}

TEST_F(InspectCopyShapeTest, ClosedFoldersAndFilesAreReportedAndLeftOut) {
    const Lines outcome = support::InForkedChild([this] {
        support::BecomeNobodyWith(m_working.Path());
        Write("src/open/file", "x");
        Write("src/closed/file", "x");
        Write("src/listed/no_entry", "x");
        Write("src/closed_file", "x");
        fs::permissions("src/closed", fs::perms{0});
        fs::permissions("src/closed_file", fs::perms{0});
        fs::permissions("src/listed", fs::perms{0400});
        Copy("src", "dst");
        fs::permissions("src/closed", fs::perms{0700});
        fs::permissions("src/listed", fs::perms{0700});
        Lines lines = Below("dst");
        const Lines log = SortedLog();
        lines.insert(lines.end(), log.begin(), log.end());
        return lines;
    });
    EXPECT_EQ(outcome, (Lines{"closed/", "listed/", "open/", "open/file",
                              "1 InspectFile 15: copy file [****no_entry]->[****no_entry] fail!",
                              "1 InspectFile 15: copy file [****sed_file]->[****sed_file] fail!",
                              "1 InspectFile 15: open dir fail!"}));
}

TEST_F(InspectCopyShapeTest, ALockedDestinationIsReportedAndLeftAlone) {
    const Lines outcome = support::InForkedChild([this] {
        support::BecomeNobodyWith(m_working.Path());
        Write("src/file", "new");
        Write("locked/file", "old");
        Write("partly/locked/file", "old");
        fs::permissions("locked", fs::perms{0500});
        fs::permissions("partly/locked", fs::perms{0500});
        Copy("src", "locked/dst");
        InspectCopyFile("src/file", "locked/dst/file", m_config);
        Copy("src", "partly");
        fs::permissions("locked", fs::perms{0700});
        fs::permissions("partly/locked", fs::perms{0700});
        Lines lines = LogLines();
        for (const char* folder : {"locked", "partly"}) {
            const Lines paths = Below(folder);
            lines.insert(lines.end(), paths.begin(), paths.end());
        }
        return lines;
    });
    EXPECT_EQ(outcome, (Lines{"1 InspectFile 15: Mkdir fail!",
                              "1 InspectFile 15: InspectMkdirMulti ret = 13!",  // EACCES
                              "1 InspectFile 15: copy file [****]->[****dst/file] fail!",
                              "1 InspectFile 15: Remove dir fail",  // and then the copy beside what stayed
                              "file", "file", "locked/", "locked/file"}));
}
