// Timers (os_timer.h): threads that sleep in virtual time until the next timer is due.
#include "kivo/os_timer.h"

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "common/records.h"
#include "common/timer_table.h"
#include "fake/fake.h"
#include "fake/journal.h"
#include "fake/process.h"
#include "fake/reset.h"

namespace kivo::fake {

namespace {

// Threads watch and call as on Linux: while one calls a callback, another one watches. All times are the scheduler's.
class Manager {
public:
    static Manager& Get() {
        static Manager& manager = *new Manager;
        return manager;
    }

    uint32_t Start() {
        if (started_) {
            return 0;
        }
        const uint32_t error = StartThread();
        started_ = error == 0;
        return error;
    }

    bool Started() const { return started_; }

    OsTimerId Add(const OsTimerParam& param) {
        const OsTimerId id = timers_.Add(param, Now());
        Scheduler::Get().Wake(&watched_);
        FindWatcher();
        return id;
    }

    bool Remove(OsTimerId id) { return timers_.Remove(id); }

    void Reset(Lock& lock) {
        timers_ = TimerTable(kSecond);
        started_ = false;
        if (threads_ == 0) {
            return;
        }
        Scheduler::Get().Wake(&watched_);
        Scheduler::Get().Wake(&spare_);
        Scheduler::Get().Settle(lock);
        if (threads_ != 0) {
            Die("a timer's callback still runs at Reset");
        }
    }

    std::vector<OsTimerParam> Params() const { return timers_.Params(); }

private:
    static constexpr int64_t kSecond = 1000;

    static int64_t Now() { return static_cast<int64_t>(Scheduler::Get().Elapsed()); }

    // The new thread watches.
    uint32_t StartThread() {
        const uint32_t error = Scheduler::Get().Spawn(TestProcess(), "timers", false, nullptr, [this] { Run(); });
        if (error == 0) {
            watched_ = true;
            ++threads_;
        }
        return error;
    }

    void Run() {
        Lock lock = Hold();
        do {
            const auto call = WaitForDue(lock);
            watched_ = false;
            if (call) {
                FindWatcher();
                lock.unlock();
                call->param.callback(call->param.userData);
                lock.lock();
                timers_.End(call->id, Now());
                Scheduler::Get().Wake(&watched_);
            }
        } while (started_ && BecomeWatcher(lock));
        --threads_;
    }

    // Nothing after a reset.
    std::optional<TimerTable::Call> WaitForDue(Lock& lock) {
        std::optional<TimerTable::Call> call;
        while (started_ && !(call = timers_.Begin(Now()))) {
            const auto due = timers_.NextDue();
            Scheduler::Get().Wait(lock, "the next timer", &watched_,
                                  due ? static_cast<uint64_t>(*due) : Scheduler::kNever);
        }
        return call;
    }

    void FindWatcher() {
        if (watched_ || !timers_.HasWaiting()) {
            return;
        }
        if (spare_) {
            watched_ = true;
            spareWanted_ = true;
            Scheduler::Get().Wake(&spare_);
        } else {
            StartThread();
        }
    }

    bool BecomeWatcher(Lock& lock) {
        if (!watched_) {
            watched_ = true;
            return true;
        }
        if (spare_) {
            return false;
        }
        spare_ = true;
        Scheduler::Get().WaitFor(lock, "a timer's callback", &spare_, Scheduler::kNever,
                                 [this] { return spareWanted_ || !started_; });
        spare_ = spareWanted_ = false;
        return started_;
    }

    TimerTable timers_{kSecond};
    size_t threads_{};
    bool started_{};
    bool watched_{};  // a thread waits for the next timer, or is about to; its address is the channel of that thread
    bool spare_{};    // a thread waits to be wanted as the watcher; likewise
    bool spareWanted_{};
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
    if (!Manager::Get().Started()) {
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
