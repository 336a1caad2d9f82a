// Process monitor client (os_monitor.h): the calls are recorded and have no other effect.
#include "kivo/os_monitor.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "fake/journal.h"
#include "fake/reset.h"
#include "fake/scheduler.h"

using namespace kivo::fake;

namespace {

std::string& Registered() {
    static auto& name = *new std::string;
    return name;
}

}  // namespace

void kivo::fake::ResetMonitor() {
    Registered().clear();
}

uint32_t OsMonitorProReg(const struct OsMonitorProInfo* info) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsMonitorProReg")) {
        return *code;
    }
    if (info == nullptr || std::memchr(info->procName, '\0', sizeof(info->procName)) == nullptr) {
        return EINVAL;
    }
    RecordCall(lock, std::string("OsMonitorProReg(") + info->procName + ", " + std::to_string(info->timeout) + ")");
    if (info->timeout == 0) {
        return EINVAL;
    }
    Registered() = info->procName;
    return 0;
}

uint32_t OsMonitorProActivate(const char* procName) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsMonitorProActivate")) {
        return *code;
    }
    if (procName == nullptr) {
        return EINVAL;
    }
    RecordCall(lock, std::string("OsMonitorProActivate(") + procName + ")");
    return Registered() == procName ? 0 : EINVAL;
}
