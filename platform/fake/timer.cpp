// Timers (os_timer.h): a manager thread that sleeps in virtual time until the next timer is due.
#include "kivo/os_timer.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "common/records.h"
#include "fake/fake.h"
#include "fake/journal.h"
#include "fake/process.h"
#include "fake/reset.h"

namespace kivo::fake {

namespace {

struct Timer {
    OsTimerId id{};
    OsTimerParam param{};
    uint64_t due{};  // scheduler time
};

class Manager {
public:
    static Manager& Get() {
        static Manager& manager = *new Manager;
        return manager;
    }

    uint32_t Start() {
        if (!running_) {
            const uint32_t error = Scheduler::Get().Spawn(TestProcess(), "timers", false, nullptr, [this] { Run(); });
            running_ = error == 0;
            return error;
        }
        return 0;
    }

    bool Running() const { return running_; }

    OsTimerId Add(const OsTimerParam& param) {
        timers_.push_back({++lastId_, param, Scheduler::Get().Elapsed() + Period(param)});
        Scheduler::Get().Wake(this);
        return lastId_;
    }

    bool Remove(OsTimerId id) {
        return std::erase_if(timers_, [id](const Timer& timer) { return timer.id == id; }) != 0;
    }

    void Reset(Lock& lock) {
        timers_.clear();
        if (running_) {
            stop_ = true;
            Scheduler::Get().Wake(this);
            Scheduler::Get().Settle(lock);
            if (running_) {
                Die("a timer's callback still runs at Reset");
            }
        }
        lastId_ = 0;
    }

    std::vector<OsTimerParam> Params() const {
        std::vector<OsTimerParam> params;
        for (const Timer& timer : timers_) {
            params.push_back(timer.param);
        }
        return params;
    }

private:
    static uint64_t Period(const OsTimerParam& param) { return uint64_t{param.period} * 1000; }

    void Run() {
        Lock lock = Hold();
        while (!stop_) {
            const auto next = std::ranges::min_element(timers_, {}, &Timer::due);
            if (next != timers_.end() && next->due <= Scheduler::Get().Elapsed()) {
                const OsTimerParam param = next->param;
                next->due += Period(param);
                const OsTimerId once = param.repeat == 0 ? next->id : 0;
                lock.unlock();
                param.callback(param.userData);
                lock.lock();
                Remove(once);
            } else {
                Scheduler::Get().Wait(lock, "the next timer", this,
                                      next == timers_.end() ? Scheduler::kNever : next->due);
            }
        }
        stop_ = false;
        running_ = false;
    }

    std::vector<Timer> timers_;  // oldest first
    OsTimerId lastId_{};
    bool running_{};
    bool stop_{};
};

}  // namespace

void ResetTimers(Lock& lock) {
    Manager::Get().Reset(lock);
}

std::vector<OsTimerParam> Timers() {
    const Lock lock = Hold();
    return Manager::Get().Params();
}

}  // namespace kivo::fake

using namespace kivo::fake;

uint32_t OsTmrManagerInit(uint32_t tick, uint32_t priority, uint32_t flags) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsTmrManagerInit")) {
        return *code;
    }
    RecordCall(lock, "OsTmrManagerInit(" + std::to_string(tick) + ", " + std::to_string(priority) + ", " +
                         std::to_string(flags) + ")");
    if (tick == 0 || priority != 0 || flags != 0) {
        return EINVAL;
    }
    return Manager::Get().Start();
}

uint32_t OsTmrCreate(const struct OsTimerParam* param, OsTimerId* id) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsTmrCreate")) {
        return *code;
    }
    if (param == nullptr || id == nullptr) {
        return EINVAL;
    }
    RecordCall(lock, "OsTmrCreate(" + std::to_string(param->mode) + ", " + std::to_string(param->period) + ", " +
                         std::to_string(param->repeat) + ")");
    if (!kivo::IsValid(*param)) {
        return EINVAL;
    }
    if (!Manager::Get().Running()) {
        return EPERM;
    }
    *id = Manager::Get().Add(*param);
    return 0;
}

uint32_t OsTmrDelete(OsTimerId id) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsTmrDelete")) {
        return *code;
    }
    RecordCall(lock, "OsTmrDelete(" + std::to_string(id) + ")");
    return Manager::Get().Remove(id) ? 0 : ENOENT;
}
