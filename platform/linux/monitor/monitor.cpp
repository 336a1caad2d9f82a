// sd_notify(3) does the sending; only the registered name is kept here.
#include "kivo/os_monitor.h"

#include <systemd/sd-daemon.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <mutex>

namespace {

constexpr uint64_t kMicrosecondsPerMillisecond = 1000;

struct Registration {
    std::mutex mutex;
    bool done = false;
    OsMonitorProInfo info{};
};

// Never destroyed: a timer may still activate while the process ends.
Registration& TheRegistration() {
    static auto* registration = new Registration;
    return *registration;
}

// sd_notify returns 0 when there is no manager; that is fine, as nobody watches this process then.
uint32_t Result(int notified) {
    return notified < 0 ? static_cast<uint32_t>(-notified) : 0;
}

bool IsRegistered(const char* procName) {
    Registration& registration = TheRegistration();
    const std::lock_guard lock(registration.mutex);
    return registration.done && std::strcmp(procName, registration.info.procName) == 0;
}

}  // namespace

uint32_t OsMonitorProReg(const struct OsMonitorProInfo* info) {
    if (info == nullptr || std::memchr(info->procName, '\0', sizeof info->procName) == nullptr || info->timeout == 0) {
        return EINVAL;
    }
    {
        Registration& registration = TheRegistration();
        const std::lock_guard lock(registration.mutex);
        registration.info = *info;
        registration.done = true;
    }
    return Result(sd_notifyf(0, "READY=1\nWATCHDOG_USEC=%" PRIu64, info->timeout * kMicrosecondsPerMillisecond));
}

uint32_t OsMonitorProActivate(const char* procName) {
    if (procName == nullptr || !IsRegistered(procName)) {
        return EINVAL;
    }
    return Result(sd_notify(0, "WATCHDOG=1"));
}
