// Each allocation of the system-log backup fails once: of its start, of the timer's round, and of the collection of its
// entry. Afterwards the next collection copies everything, and one timer goes on.
#include <algorithm>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "collect/wylog_backup.h"
#include "collect/wylog_files.h"
#include "kivo/os_time.h"
#include "kivo/os_timer.h"
#include "ominspect/collect.h"
#include "support/device_folder.h"
#include "support/nth_allocation.h"

using namespace support;
namespace fs = std::filesystem;

// The product's own definition.
extern "C" bool InspectIsNeedBackupWylog() {
    return true;
}

namespace {

constexpr unsigned kMostAllocations = 5000;
constexpr const char* kSource = "device/data/log/wylogs";
constexpr const char* kBackup = "device/data/inspect/diag/log/wylogs";

using Names = std::vector<std::string>;

class EveryAllocationOfTheBackup : public DeviceTest {
protected:
    EveryAllocationOfTheBackup() { LeaveOut(reinterpret_cast<const void*>(&OsGetSystemTime)); }

    // A rotated application log; the higher its number, the younger.
    static std::string Log(int number) { return "wyapplogcat-log.I" + std::to_string(number); }

    static void AddLog(int number, const std::string& dir = kSource) {
        const std::string path = dir + "/" + Log(number);
        Write(path, "log " + std::to_string(number));
        fs::last_write_time(path, fs::file_time_type(std::chrono::hours(number)));
    }

    static Names NamesIn(const char* dir) {
        Names names;
        for (const auto& entry : fs::directory_iterator(dir)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // The server's list of backups outlives a test. A start finds it in the folder.
    static void ForgetBackups() {
        fs::remove_all("device");
        fs::create_directories(kBackup);
        InspectBackupWylogInit();
        kivo::fake::Pass(60);
        kivo::fake::Settle();
    }

    static void MakeLogs() {
        fs::remove_all("device");
        for (int number = 1; number <= 3; ++number) {
            AddLog(number);
        }
        Write(std::string(kSource) + "/kernel.log", "K");
    }

    // Lets the first allocation fail, the second, and so on until the road needs no more; `begin` and `next` stand
    // around each failure.
    template <typename Begin, typename Road, typename Next>
    static void Everywhere(unsigned least, const Begin& begin, const Road& road, const Next& next) {
        unsigned number = 0;
        for (bool happened = true; happened && number < kMostAllocations; ++number) {
            SCOPED_TRACE("allocation " + std::to_string(number));
            ForgetBackups();
            kivo::fake::Reset();
            EXPECT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
            MakeLogs();
            begin();
            {
                const NthAllocation shortage(number);
                road();
                happened = shortage.Happened();
            }
            next();
            if (HasFailure()) {
                return;
            }
        }
        EXPECT_GE(number, least);
        EXPECT_LT(number, kMostAllocations);
    }

    // The backup's lock is free, its folder gets everything that is there, and one timer goes on.
    static void StillBacksUp() {
        CollectConfig config;
        InspectCopyWylogsFile(kSource, kBackup, config);
        EXPECT_EQ(NamesIn(kBackup), (Names{"kernel.log", Log(1), Log(2), Log(3)}));
        EXPECT_EQ(Read(std::string(kBackup) + "/" + Log(3)), "log 3");
        EXPECT_EQ(kivo::fake::Timers().size(), 1U);
    }
};

}  // namespace

TEST_F(EveryAllocationOfTheBackup, OfItsStart) {
    Everywhere(
        20, [] {},
        [] {
            InspectBackupWylogInit();
            kivo::fake::Pass(60);
            kivo::fake::Settle();
        },
        StillBacksUp);
}

TEST_F(EveryAllocationOfTheBackup, OfItsStartWithBackupsThatAreThere) {
    Everywhere(
        20,
        [] {
            for (const int number : {1, 2}) {
                AddLog(number, kBackup);
            }
        },
        [] {
            InspectBackupWylogInit();
            kivo::fake::Pass(60);
            kivo::fake::Settle();
        },
        StillBacksUp);
}

TEST_F(EveryAllocationOfTheBackup, OfTheTimersRound) {
    Everywhere(
        20,
        [] {
            CollectConfig config;
            InspectCopyWylogsFile(kSource, kBackup, config);
            for (int number = 4; number <= 6; ++number) {
                AddLog(number);
            }
        },
        [] { kivo::fake::Pass(3600); },
        [] {
            kivo::fake::Pass(3600);
            EXPECT_TRUE(fs::exists(std::string(kBackup) + "/" + Log(4)));
            EXPECT_FALSE(fs::exists(std::string(kBackup) + "/" + Log(5)));
            EXPECT_EQ(kivo::fake::Timers().size(), 1U);
        });
}

TEST_F(EveryAllocationOfTheBackup, OfACollection) {
    Everywhere(
        20, [] {},
        [] {
            CollectConfig config;
            InspectCopyWylogsFile(kSource, kBackup, config);
        },
        StillBacksUp);
}

// The list of backups bounds how many there are: it holds each of them once, and nothing else.
TEST_F(EveryAllocationOfTheBackup, OfTheListOfBackups) {
    Names backups;
    Everywhere(
        20,
        [&backups] {
            AddLog(1, kBackup);
            AddLog(2, kBackup);
            backups = {Log(1)};
        },
        [&backups] {
            try {
                BackupAppLogs(kSource, kBackup, true, backups);
            } catch (const std::bad_alloc&) {  // as the interface says
            }
        },
        [&backups] {
            AddLog(4);
            BackupAppLogs(kSource, kBackup, true, backups);
            Names sorted = backups;
            std::sort(sorted.begin(), sorted.end());
            EXPECT_EQ(sorted, (Names{Log(1), Log(2), Log(3), Log(4)}));
        });
}
