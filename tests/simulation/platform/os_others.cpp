// Timers, accounted memory and the process monitor (os_timer.h, os_mem.h, os_monitor.h).
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "common/records.h"
#include "kivo/os_mem.h"
#include "kivo/os_monitor.h"
#include "kivo/os_timer.h"
#include "world/faults.h"
#include "world/journal.h"
#include "world/observer.h"
#include "world/process.h"

using namespace sim;

namespace {

// A timer's thread. Calls that come too late are left out.
void RunTimer(Process& process, const std::shared_ptr<Timer>& timer, OsTimerId id) {
    const Micros period = timer->param.period * kSecond;
    do {
        {
            const InPlatform platform;
            WaitFor("a timer", timer.get(), timer->due, [&timer] { return timer->deleted; });
        }
        if (timer->deleted) {
            return;
        }
        timer->param.callback(timer->param.userData);
        const InPlatform platform;
        timer->due += (1 + (Now() - timer->due) / period) * period;
    } while (timer->param.repeat != 0 && !timer->deleted);
    const InPlatform platform;
    process.timers.erase(id);
}

uint32_t CreateTimer(Process& process, const OsTimerParam* param, OsTimerId* id) {
    if (param == nullptr || id == nullptr || !kivo::IsValid(*param)) {
        return EINVAL;
    }
    if (!process.timersStarted) {
        return EPERM;
    }
    if (IsDue(Fault::kTimerFails)) {
        return ENOMEM;
    }
    const auto timer = std::make_shared<Timer>();
    timer->param = *param;
    timer->due = Now() + param->period * kSecond;
    *id = ++process.lastTimer;
    process.timers[*id] = timer;
    Spawn(process, "timer", [&process, timer, number = *id] { RunTimer(process, timer, number); });
    return 0;
}

// Stands before every accounted block.
struct alignas(std::max_align_t) Header {
    Process* process;
};

}  // namespace

uint32_t OsTmrManagerInit(uint32_t tick, uint32_t priority, uint32_t flags) {
    const InPlatform platform;
    Point();
    if (tick == 0 || priority != 0 || flags != 0) {
        return EINVAL;
    }
    CurrentProcess().timersStarted = true;
    return 0;
}

uint32_t OsTmrCreate(const OsTimerParam* param, OsTimerId* id) {
    const InPlatform platform;
    Point();
    const uint32_t result = CreateTimer(CurrentProcess(), param, id);
    if (Observer* const observer = TheObserver(); observer != nullptr && param != nullptr) {
        observer->OnTimer(*Self(), param->period, result);
    }
    return result;
}

uint32_t OsTmrDelete(OsTimerId id) {
    const InPlatform platform;
    Point();
    Process& process = CurrentProcess();
    const auto timer = process.timers.find(id);
    if (timer == process.timers.end()) {
        return ENOENT;
    }
    timer->second->deleted = true;
    Wake(timer->second.get());
    process.timers.erase(timer);
    return 0;
}

void* OsMemMallocSetCharMon(size_t size, int fill, const char* /*unit*/, uint32_t /*line*/) {
    const InPlatform platform;
    void* const memory = std::malloc(sizeof(Header) + size);
    auto* const header = new (memory) Header{&CurrentProcess()};
    ++header->process->accounted;
    std::memset(header + 1, fill, size);
    return header + 1;
}

void OSMemTypeFreeMon(void* block, const char* /*unit*/, uint32_t /*line*/) {
    if (block != nullptr) {
        auto* const header = static_cast<Header*>(block) - 1;
        --header->process->accounted;
        std::free(header);
    }
}

uint32_t OsMonitorProReg(const OsMonitorProInfo* info) {
    const InPlatform platform;
    Point();
    if (info == nullptr || info->timeout == 0 || std::memchr(info->procName, '\0', sizeof info->procName) == nullptr) {
        return EINVAL;
    }
    Process& process = CurrentProcess();
    if (info->timeout != 30000) {
        Violation("registers with the monitor for " + std::to_string(info->timeout));
    }
    process.monitored = info->procName;
    process.lastSign = Now();
    return 0;
}

uint32_t OsMonitorProActivate(const char* procName) {
    const InPlatform platform;
    Point();
    Process& process = CurrentProcess();
    if (procName == nullptr || process.monitored != procName) {
        return EINVAL;
    }
    constexpr Micros kPeriod = 5 * kSecond;
    if (Now() - process.lastSign > 2 * kPeriod) {
        Violation("no sign of life for " + std::to_string((Now() - process.lastSign) / kSecond) + " s");
    }
    process.lastSign = Now();
    Note({"activate"});
    return 0;
}
