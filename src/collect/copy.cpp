// The functions call each other for every level of a tree. The guard around each keeps a failed allocation from ending
// more than the level that it happened in.
#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "base/guard.h"
#include "base/log.h"
#include "collect/file_ops.h"
#include "kivo/os_file.h"
#include "ominspect/collect.h"

namespace {

constexpr LogUnit kLogUnit{"InspectFile", 15};
constexpr uint32_t kLongestLimit = 60;

std::string Masked(const char* path) {
    return SafeTool::TransferSafePath(path);
}

// The timer thread of the topmost directory copy. The destructor ends and joins it.
class TimerThread {
public:
    explicit TimerThread(CollectConfig& config) : m_config(config) {
        if (config.startTimer.exchange(false)) {
            m_thread = std::thread(CollectTimer, std::ref(config));
            (void)pthread_setname_np(m_thread.native_handle(), "collect_timer");
        }
    }
    ~TimerThread() {
        if (m_thread.joinable()) {
            m_config.running = false;
            m_thread.join();
        }
    }
    TimerThread(const TimerThread&) = delete;
    TimerThread& operator=(const TimerThread&) = delete;

private:
    CollectConfig& m_config;
    std::thread m_thread;
};

void CopyEntries(OsDir* dir, const char* src, const char* dst, CollectConfig& config) {
    while (const dirent* entry = OsReadDir(dir)) {
        if (!config.running) {
            INSPECT_ERROR("collection stopped by timer, [%s]->[%s] timeout.", Masked(src).c_str(), Masked(dst).c_str());
            return;
        }
        const char* name = static_cast<const char*>(entry->d_name);
        if (IsDotEntry(name)) {
            continue;
        }
        PathBuffer from;
        PathBuffer to;
        if (!JoinPath(from, src, name) || !JoinPath(to, dst, name)) {
            return;  // a path that does not fit ends the directory like its last entry
        }
        InspectDealCopy(from.data(), to.data(), config);
    }
}

void CopyDirectory(const char* src, const char* dst, CollectConfig& config) {
    if (OsAccess(dst, 0) == 0 && InspectRemovePath(dst) != 0) {
        INSPECT_ERROR("Remove dir fail");
    }
    if (InspectMkdirMulti(dst) != 0) {
        INSPECT_ERROR("Mkdir fail!");
        return;
    }
    const DirHandle dir(OsOpenDir(src));
    if (dir == nullptr) {
        INSPECT_ERROR("open dir fail!");
        return;
    }
    const TimerThread timer(config);
    CopyEntries(dir.get(), src, dst, config);
}

}  // namespace

void CollectTimer(CollectConfig& config) {
    const uint32_t limit = std::min(config.timeout, kLongestLimit);
    for (uint32_t count = 0; count < limit && config.running; ++count) {
        sleep(1);
    }
    config.running = false;
}

void InspectCopyDirFile(const char* src, const char* dst, CollectConfig& config) {
    RunGuarded(kLogUnit, "collection", [&] { CopyDirectory(src, dst, config); });
}

void InspectDealCopy(const char* src, const char* dst, CollectConfig& config) {
    if (InspectIsDir(src)) {
        InspectCopyDirFile(src, dst, config);
        return;
    }
    RunGuarded(kLogUnit, "collection", [&] {
        if (OsCopyFile(src, dst) != 0) {
            INSPECT_ERROR("copy file [%s]->[%s] fail!", Masked(src).c_str(), Masked(dst).c_str());
        }
        if (InspectChangeFileTime(src, dst) != 0) {
            INSPECT_ERROR("change file [%s]->[%s] time fail", Masked(src).c_str(), Masked(dst).c_str());
        }
    });
}

void InspectCopyFile(const char* src, const char* dst, CollectConfig& config) {
    RunGuarded(kLogUnit, "collection", [&] {
        const char* slash = std::strrchr(dst, '/');
        if (slash == nullptr) {
            INSPECT_ERROR("strrchr fail!");
            return;
        }
        if (const int made = InspectMkdirMulti(std::string(dst, slash).c_str()); made != 0) {
            INSPECT_ERROR("InspectMkdirMulti ret = %d!", made);
        }
        InspectDealCopy(src, dst, config);
    });
}
