// The lock of the system-log backup: the timer and the list of backed-up files change while it is held.
#include <gtest/gtest.h>

#include "collect/wylog_backup.h"
#include "ominspect/collect.h"
#include "support/device_folder.h"
#include "support/journal_text.h"
#include "support/lock_trace.h"

using support::Lines;
using support::LockTrace;
namespace fs = std::filesystem;

// The product's own definition.
extern "C" bool InspectIsNeedBackupWylog() {
    return true;
}

namespace {

constexpr const char* kSource = "device/data/log/wylogs";
constexpr const char* kBackup = "device/data/inspect/diag/log/wylogs";

class WylogBackupLockTest : public support::DeviceTest {
protected:
    void SetUp() override {
        DeviceTest::SetUp();
        EXPECT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
        fs::create_directories(kSource);
        fs::create_directories(kBackup);
        for (const char* number : {"1", "2", "3"}) {
            Write(std::string(kSource) + "/wyapplogcat-log.I" + number, number);
        }
    }

    // A backup thread that looks after 60 seconds.
    static void Start() {
        InspectBackupWylogInit();
        kivo::fake::Pass(60);
        kivo::fake::Settle();
    }
};

// "another": the backup's.
const Lines kStarted{"another", "another", "copy under another", "another", "timer under another"};

}  // namespace

TEST_F(WylogBackupLockTest, IsHeldAtTheStartToTakeInToBackUpAndToStartTheTimer) {
    InspectBackupWylogInit();
    const LockTrace trace;
    kivo::fake::Pass(60);
    kivo::fake::Settle();
    EXPECT_EQ(trace.Lines(), kStarted);
}

TEST_F(WylogBackupLockTest, IsHeldByThePeriodicRun) {
    Start();
    Write(std::string(kSource) + "/wyapplogcat-log.I4", "4");
    const LockTrace trace;
    kivo::fake::Pass(3600);
    EXPECT_EQ(trace.Lines(), (Lines{"another", "copy under another"}));
}

TEST_F(WylogBackupLockTest, IsHeldByACollectionForTheTimerAndForTheList) {
    Start();
    Write(std::string(kSource) + "/other", "copied without");
    CollectConfig config{};
    const LockTrace trace;
    InspectCopyWylogsFile(kSource, kBackup, config);
    EXPECT_EQ(trace.Lines(), (Lines{"another", "timer off under another",                   //
                                    "another", "copy under another", "copy under another",  //
                                    "copy", "another", "timer under another"}));
}
