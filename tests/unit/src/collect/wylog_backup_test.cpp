// The system-log backup with the product's hook: new files, retention, the timer, and the collection of its entry.
#include "collect/wylog_backup.h"

#include <algorithm>
#include <fstream>

#include "collect/wylog_files.h"
#include "ominspect/collect.h"
#include "support/device_folder.h"
#include "support/journal_text.h"

using support::Lines;
using support::LogLines;
namespace fs = std::filesystem;

namespace {

bool g_needBackup = true;

constexpr const char* kSource = "device/data/log/wylogs";
constexpr const char* kBackup = "device/data/inspect/diag/log/wylogs";

}  // namespace

// The product's own definition.
extern "C" bool InspectIsNeedBackupWylog() {
    return g_needBackup;
}

namespace {

class WylogBackupTest : public support::DeviceTest {
protected:
    void SetUp() override {
        DeviceTest::SetUp();
        g_needBackup = true;
        EXPECT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
        fs::create_directories(kSource);
    }

    // A rotated application log; the higher its number, the younger.
    static std::string Log(int number) { return "wyapplogcat-log.I" + std::to_string(number); }

    static void AddLog(int number, const std::string& dir = kSource) {
        const std::string path = dir + "/" + Log(number);
        Write(path, "log " + std::to_string(number));
        fs::last_write_time(path, fs::file_time_type(std::chrono::hours(number)));
    }

    static std::vector<std::string> BackedUp() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(kBackup)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // Starts the backup and lets its delay pass.
    static void StartAndWait() {
        InspectBackupWylogInit();
        kivo::fake::Pass(60);
        kivo::fake::Settle();
    }
};

using Names = std::vector<std::string>;

}  // namespace

TEST_F(WylogBackupTest, WaitsAMinuteBeforeItLooks) {
    InspectBackupWylogInit();
    kivo::fake::Pass(59);
    EXPECT_EQ(LogLines(), Lines{});
    kivo::fake::Pass(1);
    kivo::fake::Settle();
    EXPECT_EQ(LogLines(),
              (Lines{"3 InspectFile 15: Start init backup wylog", "3 InspectFile 15: create BackupWylogTimer succ"}));
    EXPECT_TRUE(fs::is_directory(kBackup));
}

TEST_F(WylogBackupTest, WaitsOnADetachedThreadOfItsOwn) {
    kivo::fake::ClearJournal();
    InspectBackupWylogInit();
    EXPECT_EQ(support::Steps(), Lines{"OsPthreadDetach"});
    kivo::fake::Pass(1);
    Lines names;
    for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        names.push_back(name);
    }
    EXPECT_EQ(std::count(names.begin(), names.end(), "wylog_backup"), 1);
}

TEST_F(WylogBackupTest, WithoutAThreadDoesNothing) {
    kivo::fake::ClearJournal();
    kivo::fake::Fail("OsPthreadCreate", 11);
    StartAndWait();
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(WylogBackupTest, WhereItIsNotNeededOnlySaysSo) {
    g_needBackup = false;
    StartAndWait();
    EXPECT_EQ(LogLines(), Lines{"3 InspectFile 15: Debug version no need to backup wylog"});
    EXPECT_FALSE(fs::exists(kBackup));
    EXPECT_TRUE(kivo::fake::Timers().empty());
}

TEST_F(WylogBackupTest, LooksEveryHour) {
    StartAndWait();
    const auto timers = kivo::fake::Timers();
    ASSERT_EQ(timers.size(), 1U);
    EXPECT_EQ(timers[0].mode, 1U);
    EXPECT_EQ(timers[0].period, 3600U);
    EXPECT_EQ(timers[0].repeat, 1U);
    EXPECT_EQ(timers[0].callback(timers[0].userData), 0U);
    for (int i = 1; i <= 3; ++i) {
        AddLog(i);
    }
    kivo::fake::Pass(3600);
    EXPECT_EQ(BackedUp(), Names{Log(1)});
}

TEST_F(WylogBackupTest, OfOneOrTwoNewFilesCopiesNoneAndOfThreeTheOldest) {
    std::vector<std::string> backups;
    fs::create_directories(kBackup);
    for (const int number : {2, 3}) {
        AddLog(number);
        BackupAppLogs(kSource, kBackup, false, backups);
        EXPECT_EQ(BackedUp(), Names{});
    }
    AddLog(1);
    BackupAppLogs(kSource, kBackup, false, backups);
    EXPECT_EQ(BackedUp(), Names{Log(1)});
    EXPECT_EQ(backups, Names{Log(1)});
    EXPECT_EQ(LogLines(), Lines{"3 InspectFile 15: Copy file [wyapplogcat-log.I1] success"});
    EXPECT_EQ(fs::last_write_time(std::string(kSource) + "/" + Log(1)),
              fs::last_write_time(std::string(kBackup) + "/" + Log(1)));
}

TEST_F(WylogBackupTest, AFullRunCopiesASingleNewFile) {
    AddLog(1);
    std::vector<std::string> backups;
    fs::create_directories(kBackup);
    BackupAppLogs(kSource, kBackup, true, backups);
    EXPECT_EQ(backups, Names{Log(1)});
}

TEST_F(WylogBackupTest, AFullRunCopiesOldestFirst) {
    for (const int number : {3, 1, 2}) {
        AddLog(number);
    }
    std::vector<std::string> backups;
    fs::create_directories(kBackup);
    BackupAppLogs(kSource, kBackup, true, backups);
    EXPECT_EQ(backups, (Names{Log(1), Log(2), Log(3)}));
}

TEST_F(WylogBackupTest, AFileThatDidNotChangeIsLeftAndOneThatDidIsCopiedAgain) {
    AddLog(1);
    AddLog(2);
    std::vector<std::string> backups;
    fs::create_directories(kBackup);
    BackupAppLogs(kSource, kBackup, true, backups);
    kivo::fake::ClearJournal();
    BackupAppLogs(kSource, kBackup, true, backups);
    EXPECT_EQ(LogLines(), Lines{});
    Write(std::string(kSource) + "/" + Log(1), "more");
    BackupAppLogs(kSource, kBackup, true, backups);
    EXPECT_EQ(LogLines(), (Lines{"3 InspectFile 15: Remove updated file [wyapplogcat-log.I1]",
                                 "3 InspectFile 15: Copy file [wyapplogcat-log.I1] success"}));
    EXPECT_EQ(Read(std::string(kBackup) + "/" + Log(1)), "more");
    EXPECT_EQ(backups, (Names{Log(2), Log(1)}));
}

TEST_F(WylogBackupTest, AFileThatChangedIsCopiedToAFileOfItsOwn) {
    const std::string backup = std::string(kBackup) + "/" + Log(1);
    AddLog(1);
    AddLog(9, kBackup);
    fs::rename(std::string(kBackup) + "/" + Log(9), backup);
    fs::create_hard_link(backup, "former");
    std::vector<std::string> backups;
    BackupAppLogs(kSource, kBackup, true, backups);
    EXPECT_EQ(Read(backup), "log 1");
    EXPECT_EQ(Read("former"), "log 9");
}

TEST_F(WylogBackupTest, Of151TheOldestIsDeleted) {
    std::vector<std::string> backups;
    fs::create_directories(kBackup);
    for (int number = 1; number <= 150; ++number) {
        AddLog(number, kBackup);
        backups.push_back(Log(number));
    }
    AddLog(151);
    BackupAppLogs(kSource, kBackup, true, backups);
    EXPECT_EQ(backups.size(), 150U);
    EXPECT_EQ(backups.front(), Log(2));
    EXPECT_EQ(backups.back(), Log(151));
    EXPECT_FALSE(fs::exists(std::string(kBackup) + "/" + Log(1)));
    EXPECT_EQ(LogLines().back(), "3 InspectFile 15: Del file [****t-log.I1]");
}

TEST_F(WylogBackupTest, BackupsOfAnotherProcessCountToo) {
    fs::create_directories(kBackup);
    for (int i = 3; i <= 152; ++i) {
        AddLog(i, kBackup);
    }
    AddLog(1);  // older than all
    AddLog(153);
    std::vector<std::string> backups;
    BackupAppLogs(kSource, kBackup, true, backups);
    EXPECT_EQ(BackedUp().size(), 150U);
    EXPECT_EQ(backups.size(), 150U);
    EXPECT_EQ(backups.front(), Log(4));
    EXPECT_EQ(backups.back(), Log(153));
    EXPECT_FALSE(fs::exists(std::string(kBackup) + "/" + Log(1)));
    EXPECT_FALSE(fs::exists(std::string(kBackup) + "/" + Log(3)));
}

TEST_F(WylogBackupTest, AListThatKnowsAllKeepsItsOrder) {
    fs::create_directories(kBackup);
    AddLog(1, kBackup);
    AddLog(2, kBackup);
    AddLog(3);
    std::vector<std::string> backups{Log(2), Log(1)};
    BackupAppLogs(kSource, kBackup, true, backups);
    EXPECT_EQ(backups, (Names{Log(2), Log(1), Log(3)}));
}

TEST_F(WylogBackupTest, AFileThatCannotBeCopiedDoesNotStopTheOthers) {
    AddLog(1);
    fs::create_directories(std::string(kSource) + "/" + Log(2));  // no regular file
    AddLog(3);
    std::vector<std::string> backups;
    fs::create_directories(kBackup);
    BackupAppLogs(kSource, kBackup, true, backups);
    const Lines lines = LogLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "1 InspectFile 15: Copy file wyapplogcat-log.I2 fail"), 1);
    EXPECT_EQ(backups, (Names{Log(1), Log(3)}));
}

TEST_F(WylogBackupTest, ItsListBeginsWithWhatIsThereOldestFirst) {
    for (int number = 150; number >= 1; --number) {
        AddLog(number, kBackup);
    }
    for (int number = 151; number <= 153; ++number) {
        AddLog(number);
    }
    StartAndWait();
    EXPECT_FALSE(fs::exists(std::string(kBackup) + "/" + Log(1)));  // the oldest made room for 151
    EXPECT_TRUE(fs::exists(std::string(kBackup) + "/" + Log(2)));
    EXPECT_TRUE(fs::exists(std::string(kBackup) + "/" + Log(151)));
}

TEST_F(WylogBackupTest, WhatWasThereAtTheStartCountsAlsoOnceItIsGone) {
    for (int number = 150; number >= 1; --number) {
        AddLog(number, kBackup);
    }
    StartAndWait();
    fs::remove(std::string(kBackup) + "/" + Log(75));
    for (int number = 151; number <= 153; ++number) {
        AddLog(number);
    }
    kivo::fake::Pass(3600);
    EXPECT_FALSE(fs::exists(std::string(kBackup) + "/" + Log(1)));
    EXPECT_TRUE(fs::exists(std::string(kBackup) + "/" + Log(2)));
    EXPECT_TRUE(fs::exists(std::string(kBackup) + "/" + Log(151)));
}

TEST_F(WylogBackupTest, AFileInPlaceOfItsFolderIsThereButCannotBeListed) {
    Write(kBackup, "a file");
    StartAndWait();
    EXPECT_EQ(LogLines(),
              (Lines{"3 InspectFile 15: Start init backup wylog",
                     "1 InspectFile 15: Failed to open destination directory: device/data/inspect/diag/log/wylogs",
                     "3 InspectFile 15: create BackupWylogTimer succ"}));
}

TEST_F(WylogBackupTest, AFolderThatCannotBeMadeEndsIt) {
    Write("device/data/inspect", "a file in the way");
    StartAndWait();
    EXPECT_EQ(LogLines(), (Lines{"3 InspectFile 15: Start init backup wylog",
                                 "1 InspectFile 15: Fail to create dir: device/data/inspect/diag/log/wylogs\n"}));
    EXPECT_TRUE(kivo::fake::Timers().empty());
}

TEST_F(WylogBackupTest, ATimerThatCannotBeMadeIsLogged) {
    kivo::fake::Fail("OsTmrCreate", 11);
    StartAndWait();
    EXPECT_EQ(LogLines().back(), "1 InspectFile 15: OsTmrCreate fail:11");
}

TEST_F(WylogBackupTest, ACollectionMakesAFullRunAndCopiesTheOtherFilesWithoutALimit) {
    AddLog(1);
    Write(std::string(kSource) + "/kernel.log", "K");
    Write(std::string(kBackup) + "/stale.log", "S");
    CollectConfig config;  // running is false: it is not looked at
    InspectCopyWylogsFile(kSource, kBackup, config);
    EXPECT_EQ(BackedUp(), (Names{"kernel.log", Log(1)}));
    EXPECT_EQ(LogLines(),
              (Lines{"3 InspectFile 15: InspectCopyWylogsFile start",
                     "3 InspectFile 15: Copy file [wyapplogcat-log.I1] success",
                     "3 InspectFile 15: Copy file [kernel.log] success",
                     "3 InspectFile 15: create BackupWylogTimer succ", "3 InspectFile 15: InspectCopyWylogsFile end"}));
    EXPECT_EQ(kivo::fake::Timers().size(), 1U);
    InspectCopyWylogsFile(kSource, kBackup, config);
    EXPECT_EQ(kivo::fake::Timers().size(), 1U);  // the former one was deleted
}

TEST_F(WylogBackupTest, ACollectionWorksOnTheFoldersThatItIsGiven) {
    AddLog(1, "given/source");
    Write("given/source/kernel.log", "K");
    Write("given/copy/stale.log", "S");
    AddLog(2);
    Write(std::string(kSource) + "/system.log", "S");
    Write(std::string(kBackup) + "/kept.log", "K");
    CollectConfig config;
    InspectCopyWylogsFile("given/source", "given/copy", config);
    Names copied;
    for (const auto& entry : fs::directory_iterator("given/copy")) {
        copied.push_back(entry.path().filename());
    }
    std::sort(copied.begin(), copied.end());
    EXPECT_EQ(copied, (Names{"kernel.log", Log(1)}));
    EXPECT_EQ(BackedUp(), Names{"kept.log"});
}

TEST_F(WylogBackupTest, OtherFilesAreCopiedWithTheirTimesOrSaidToLackThem) {
    const auto then = fs::file_time_type::clock::from_sys(std::chrono::sys_seconds(std::chrono::hours(1)));
    for (const char* name : {"kernel.log", "a;b.log"}) {
        Write(std::string(kSource) + "/" + name, name);
        fs::last_write_time(std::string(kSource) + "/" + name, then);
    }
    fs::create_directories(kBackup);
    CopyOtherWylogFiles(kSource, kBackup);
    EXPECT_EQ(BackedUp(), (Names{"a;b.log", "kernel.log"}));
    EXPECT_EQ(fs::last_write_time(std::string(kBackup) + "/kernel.log"), then);
    EXPECT_NE(fs::last_write_time(std::string(kBackup) + "/a;b.log"), then);
    Lines lines = LogLines();
    std::erase(lines, "3 InspectFile 15: Copy file [kernel.log] success");
    EXPECT_EQ(lines, (Lines{"3 InspectFile 15: Copy file [a;b.log] success",
                            "1 InspectFile 15: file path contains danger char, skip!",
                            "1 InspectFile 15: Change file [a;b.log] stat fail"}));
}

TEST_F(WylogBackupTest, ACollectionWithoutAFolderLeavesTheTimerStopped) {
    StartAndWait();
    ASSERT_EQ(kivo::fake::Timers().size(), 1U);
    fs::remove_all("device/data/inspect");
    Write("device/data/inspect", "a file in the way");
    kivo::fake::ClearJournal();
    CollectConfig config;
    InspectCopyWylogsFile(kSource, kBackup, config);
    EXPECT_EQ(LogLines(), (Lines{"3 InspectFile 15: InspectCopyWylogsFile start",
                                 "1 InspectFile 15: Fail to create dir: device/data/inspect/diag/log/wylogs\n"}));
    EXPECT_TRUE(kivo::fake::Timers().empty());
    InspectCopyWylogsFile(kSource, kBackup, config);
    EXPECT_EQ(support::Steps({kivo::fake::Kind::kCall}), Lines{"OsTmrDelete(1)"});  // once: it has gone
}

TEST_F(WylogBackupTest, AMissingFolderIsLoggedWhenItIsListed) {
    EXPECT_EQ(ListWylogFiles("missing", true), Names{});
    EXPECT_EQ(LogLines(), Lines{"1 InspectFile 15: Failed to open destination directory: missing"});
}

TEST_F(WylogBackupTest, NamesOfTheSameTimeAreAllKeptWhenTheyAreSorted) {
    Names names;
    for (int number = 1000; number < 2000; ++number) {
        names.push_back(Log(number));  // without a file, and so without a time
    }
    Names sorted = names;
    SortByTime(sorted, kSource);
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, names);
}

TEST_F(WylogBackupTest, NamesAreToldApartByTheirBeginning) {
    for (const char* name : {"wyapplogcat-log.I1", "wyapplogcat-log.E1", "x-wyapplogcat-log.I1"}) {
        Write(std::string(kSource) + "/" + name, "");
    }
    EXPECT_EQ(ListWylogFiles(kSource, true), Names{"wyapplogcat-log.I1"});
    Names others = ListWylogFiles(kSource, false);
    std::sort(others.begin(), others.end());
    EXPECT_EQ(others, (Names{".", "..", "wyapplogcat-log.E1", "x-wyapplogcat-log.I1"}));
}
