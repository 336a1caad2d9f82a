// Status, directories, and removal of files.
#include "kivo/os_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "platform_control.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

class OsFileTest : public support::ContractTest {
protected:
    std::string File(const std::string& name, const std::string& contents = "contents") const {
        std::ofstream(dir_ / name) << contents;
        return dir_ / name;
    }

    static void SetTimes(const std::string& path, int64_t seconds, long nanoseconds) {
        const timespec stamp{seconds, nanoseconds};
        const timespec both[] = {stamp, stamp};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), both, 0), 0);
    }

    support::TempFolder dir_;
};

/// The names in a directory, or an empty set when it cannot be opened.
std::multiset<std::string> Names(const std::string& path) {
    std::multiset<std::string> names;
    if (OsDir* dir = OsOpenDir(path.c_str())) {
        while (const dirent* entry = OsReadDir(dir)) {
            names.insert(entry->d_name);
        }
        EXPECT_EQ(OsCloseDir(dir), 0U);
    }
    return names;
}

}  // namespace

TEST_F(OsFileTest, AccessTellsWhetherAPathExists) {
    EXPECT_EQ(OsAccess(File("there").c_str(), 0), 0U);
    EXPECT_EQ(OsAccess(dir_.Path().c_str(), 0), 0U);
    EXPECT_EQ(OsAccess((dir_ / "missing").c_str(), 0), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(OsAccess((File("there") + "/below").c_str(), 0), static_cast<uint32_t>(ENOTDIR));
    EXPECT_EQ(OsAccess(nullptr, 0), static_cast<uint32_t>(EINVAL));
}

TEST_F(OsFileTest, AccessFollowsLinksSoADanglingOneDoesNotExist) {
    fs::create_symlink(File("there"), dir_ / "good");
    fs::create_symlink("nowhere", dir_ / "dangling");
    EXPECT_EQ(OsAccess((dir_ / "good").c_str(), 0), 0U);
    EXPECT_EQ(OsAccess((dir_ / "dangling").c_str(), 0), static_cast<uint32_t>(ENOENT));
}

TEST_F(OsFileTest, AccessHonoursTheMode) {
    const std::string file = File("plain");
    EXPECT_EQ(OsAccess(file.c_str(), R_OK), 0U);
    EXPECT_EQ(OsAccess(file.c_str(), X_OK), static_cast<uint32_t>(EACCES));
}

TEST_F(OsFileTest, ReadDirYieldsEveryEntryOnceWithTheDotNames) {
    File("one");
    File("two");
    fs::create_directory(dir_ / "sub");
    fs::create_symlink("nowhere", dir_ / "dangling");
    EXPECT_EQ(Names(dir_.Path()), (std::multiset<std::string>{".", "..", "dangling", "one", "sub", "two"}));
}

TEST_F(OsFileTest, OpenDirFailsForWhatIsNoDirectory) {
    errno = 0;
    EXPECT_EQ(OsOpenDir((dir_ / "missing").c_str()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(OsOpenDir(File("plain").c_str()), nullptr);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(OsOpenDir(nullptr), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(OsFileTest, NullDirectoryHandlesAreRefused) {
    EXPECT_EQ(OsReadDir(nullptr), nullptr);
    EXPECT_EQ(OsCloseDir(nullptr), static_cast<uint32_t>(EINVAL));
}

TEST_F(OsFileTest, StatTellsSizeTypePermissionsAndLinks) {
    const std::string file = File("plain", "12345");
    fs::permissions(file, fs::perms{0640});
    fs::create_hard_link(file, dir_ / "second");
    OsFileStat stat{};
    ASSERT_EQ(OsGetStat(file.c_str(), &stat), 0U);
    EXPECT_EQ(stat.size, 5U);
    EXPECT_EQ(stat.mode, 0100640U);
    EXPECT_EQ(stat.linkCount, 2U);
    ASSERT_EQ(OsGetStat(dir_.Path().c_str(), &stat), 0U);
    EXPECT_EQ(stat.mode & 0170000U, 0040000U);
}

TEST_F(OsFileTest, StatFollowsLinks) {
    fs::create_symlink(File("plain", "12345"), dir_ / "link");
    OsFileStat stat{};
    ASSERT_EQ(OsGetStat((dir_ / "link").c_str(), &stat), 0U);
    EXPECT_EQ(stat.size, 5U);
    fs::create_symlink("nowhere", dir_ / "dangling");
    EXPECT_EQ(OsGetStat((dir_ / "dangling").c_str(), &stat), static_cast<uint32_t>(ENOENT));
}

TEST_F(OsFileTest, StatTimesAreNanosecondsSince1970) {
    const std::string file = File("plain");
    SetTimes(file, 1700000000, 123456789);
    OsFileStat stat{};
    ASSERT_EQ(OsGetStat(file.c_str(), &stat), 0U);
    EXPECT_EQ(stat.modifyTime, 1700000000123456789);
    SetTimes(file, -2, 500000000);  // before 1970
    ASSERT_EQ(OsGetStat(file.c_str(), &stat), 0U);
    EXPECT_EQ(stat.modifyTime, -1500000000);
}

TEST_F(OsFileTest, DetectionTimeIsEqualInAStampedCopyUntilTheSourceChanges) {
    const std::string source = File("source");
    SetTimes(source, 1700000000, 1);
    const std::string copy = dir_ / "copy";
    ASSERT_EQ(OsCopyFile(source.c_str(), copy.c_str()), 0U);
    SetTimes(copy, 1700000000, 1);
    OsFileStat sourceStat{};
    OsFileStat copyStat{};
    ASSERT_EQ(OsGetStat(source.c_str(), &sourceStat), 0U);
    ASSERT_EQ(OsGetStat(copy.c_str(), &copyStat), 0U);
    EXPECT_EQ(sourceStat.detectTime, copyStat.detectTime);

    std::ofstream(source, std::ios::app) << "more";
    ASSERT_EQ(OsGetStat(source.c_str(), &sourceStat), 0U);
    EXPECT_NE(sourceStat.detectTime, copyStat.detectTime);
}

TEST_F(OsFileTest, ReadingAFileChangesNeitherTime) {
    const std::string file = File("plain");
    SetTimes(file, 1700000000, 0);
    std::string word;
    std::ifstream(file) >> word;
    ASSERT_EQ(word, "contents");
    OsFileStat stat{};
    ASSERT_EQ(OsGetStat(file.c_str(), &stat), 0U);
    EXPECT_EQ(stat.modifyTime, 1700000000000000000);
    EXPECT_EQ(stat.detectTime, 1700000000000000000);
}

TEST_F(OsFileTest, StatErrors) {
    OsFileStat stat{};
    EXPECT_EQ(OsGetStat((dir_ / "missing").c_str(), &stat), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(OsGetStat(nullptr, &stat), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(OsGetStat(dir_.Path().c_str(), nullptr), static_cast<uint32_t>(EINVAL));
}

TEST_F(OsFileTest, MkDirGivesExactlyTheMode) {
    const mode_t former = umask(0077);
    const uint32_t result = OsMkDir((dir_ / "made").c_str(), 0770);
    umask(former);
    EXPECT_EQ(result, 0U);
    OsFileStat stat{};
    ASSERT_EQ(OsGetStat((dir_ / "made").c_str(), &stat), 0U);
    EXPECT_EQ(stat.mode, 0040770U);
}

TEST_F(OsFileTest, MkDirCreatesOneLevelAndNeverReplaces) {
    EXPECT_EQ(OsMkDir((dir_ / "a/b").c_str(), 0770), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(OsMkDir(File("plain").c_str(), 0770), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(OsMkDir(dir_.Path().c_str(), 0770), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(OsMkDir("", 0770), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(OsMkDir(nullptr, 0770), static_cast<uint32_t>(EINVAL));
}

TEST_F(OsFileTest, RemoveTakesAFileOrALinkButNotWhatTheLinkNames) {
    const std::string file = File("plain");
    fs::create_symlink(file, dir_ / "link");
    EXPECT_EQ(OsRemove((dir_ / "link").c_str()), 0U);
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(OsRemove(file.c_str()), 0U);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(OsRemove(file.c_str()), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(OsRemove(nullptr), static_cast<uint32_t>(EINVAL));
}

TEST_F(OsFileTest, RemoveRefusesADirectory) {
    fs::create_directory(dir_ / "empty");
    EXPECT_EQ(OsRemove((dir_ / "empty").c_str()), static_cast<uint32_t>(EISDIR));
    EXPECT_TRUE(fs::exists(dir_ / "empty"));
}

TEST_F(OsFileTest, RmDirTakesAnEmptyDirectoryOnly) {
    fs::create_directory(dir_ / "sub");
    const std::string inside = File("sub/inside");
    EXPECT_EQ(OsRmDir((dir_ / "sub").c_str()), static_cast<uint32_t>(ENOTEMPTY));
    EXPECT_EQ(OsRmDir(inside.c_str()), static_cast<uint32_t>(ENOTDIR));
    fs::remove(inside);
    EXPECT_EQ(OsRmDir((dir_ / "sub").c_str()), 0U);
    EXPECT_FALSE(fs::exists(dir_ / "sub"));
    EXPECT_EQ(OsRmDir((dir_ / "sub").c_str()), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(OsRmDir(nullptr), static_cast<uint32_t>(EINVAL));
}
