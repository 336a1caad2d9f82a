// Three callers meet here: the backup thread at the start, the timer, and a collection of the system log.
#include "collect/wylog_backup.h"

#include <pthread.h>

#include <mutex>
#include <string>
#include <vector>

#include "base/device_paths.h"
#include "base/guard.h"
#include "base/log.h"
#include "collect/file_ops.h"
#include "collect/wylog_files.h"
#include "kivo/os_thread.h"
#include "kivo/os_timer.h"
#include "ominspect/collect.h"

// Seconds. The tests' build of this file has shorter ones.
#ifndef INSPECT_BACKUP_DELAY_S
#define INSPECT_BACKUP_DELAY_S 60
#endif
#ifndef INSPECT_BACKUP_PERIOD_S
#define INSPECT_BACKUP_PERIOD_S 3600
#endif

namespace {

constexpr LogUnit kLogUnit{"InspectFile", 15};
constexpr uint32_t kStartDelay = INSPECT_BACKUP_DELAY_S;
constexpr uint32_t kTimerPeriod = INSPECT_BACKUP_PERIOD_S;
constexpr OsTimerId kNoTimer = 0;

// What the backup thread, the timer's callback and a collection share. Never destroyed: the timer may still fire while
// the process ends.
struct Backup {
    std::mutex lock;                          // guards the two fields below
    std::vector<std::string> backupFileList;  // names in the backup directory, oldest first
    OsTimerId timer = kNoTimer;
};

Backup& TheBackup() {
    static auto* backup = new Backup;
    return *backup;
}

void Run(const std::string& src, const std::string& dst, bool fullRun) {
    Backup& backup = TheBackup();
    const std::lock_guard lock(backup.lock);
    BackupAppLogs(src, dst, fullRun, backup.backupFileList);
}

uint32_t OnTimer(uint64_t /*userData*/) {
    RunGuarded(kLogUnit, "backup", [] { Run(kSystemLogDir, kSystemLogBackupDir, false); });
    return 0;
}

void DeleteTimer(Backup& backup) {
    if (backup.timer != kNoTimer) {
        (void)OsTmrDelete(backup.timer);
        backup.timer = kNoTimer;
    }
}

void StartBackupTimer() {
    Backup& backup = TheBackup();
    const std::lock_guard lock(backup.lock);
    DeleteTimer(backup);
    const OsTimerParam param{1, {}, 0, kTimerPeriod, 1, OnTimer};
    if (const uint32_t result = OsTmrCreate(&param, &backup.timer); result != 0) {
        INSPECT_ERROR("OsTmrCreate fail:%d", static_cast<int>(result));
    } else {
        INSPECT_INFO("create BackupWylogTimer succ");
    }
}

void StopBackupTimer() {
    Backup& backup = TheBackup();
    const std::lock_guard lock(backup.lock);
    DeleteTimer(backup);
}

bool MakeBackupDir() {
    if (InspectMkdirMulti(kSystemLogBackupDir) == 0) {
        return true;
    }
    INSPECT_ERROR("Fail to create dir: %s\n", kSystemLogBackupDir);
    return false;
}

// What was backed up before this start.
void TakeInBackups() {
    std::vector<std::string> names = ListWylogFiles(kSystemLogBackupDir, true);
    SortByTime(names, kSystemLogBackupDir);
    Backup& backup = TheBackup();
    const std::lock_guard lock(backup.lock);
    backup.backupFileList.swap(names);
}

void StartBackup() {
    if (!InspectIsNeedBackupWylog()) {
        INSPECT_INFO("Debug version no need to backup wylog");
        return;
    }
    INSPECT_INFO("Start init backup wylog");
    if (OsAccess(kSystemLogBackupDir, 0) == 0) {
        TakeInBackups();
    } else if (!MakeBackupDir()) {
        return;
    }
    Run(kSystemLogDir, kSystemLogBackupDir, false);
    StartBackupTimer();
}

void* BackupThread(void* /*argument*/) {
    (void)pthread_setname_np(pthread_self(), "wylog_backup");
    (void)OsSleep(kStartDelay);
    RunGuarded(kLogUnit, "backup", StartBackup);
    return nullptr;
}

}  // namespace

void InspectBackupWylogInit() {
    OsThread thread{};
    if (OsPthreadCreate(&thread, nullptr, BackupThread, nullptr) == 0) {
        (void)OsPthreadDetach(thread);
    }
}

void InspectCopyWylogsFile(const char* src, const char* dst, CollectConfig& config) {
    INSPECT_INFO("InspectCopyWylogsFile start");
    if (!InspectIsNeedBackupWylog()) {
        InspectCopyDirFile(src, dst, config);
        return;
    }
    RunGuarded(kLogUnit, "collection", [&] {
        StopBackupTimer();
        if (!MakeBackupDir()) {
            return;  // the timer stays stopped until the next collection that works
        }
        Run(src, dst, true);
        CopyOtherWylogFiles(src, dst);
        StartBackupTimer();
        INSPECT_INFO("InspectCopyWylogsFile end");
    });
}
