// Callback timers: one timerfd and one manager thread.
#include "kivo/os_timer.h"

#include <pthread.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <map>
#include <mutex>
#include <new>

#include "common/records.h"

namespace {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

struct Timer {
    OsTimerParam param;
    int64_t due;  // ns of CLOCK_MONOTONIC
};

int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

int64_t Period(const Timer& timer) {
    return timer.param.period * kNanosecondsPerSecond;
}

class TimerManager {
public:
    // Never destroyed: its thread runs until the process has ended.
    static TimerManager& Instance() {
        static auto* manager = new TimerManager;
        return *manager;
    }

    uint32_t Start() {
        const std::lock_guard lock(mutex_);
        if (fd_ >= 0) {
            return 0;
        }
        const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
        if (fd < 0) {
            return static_cast<uint32_t>(errno);
        }
        fd_ = fd;
        const uint32_t error = StartThread();
        if (error != 0) {
            close(fd);
            fd_ = -1;
        }
        return error;
    }

    uint32_t Create(const OsTimerParam& param, OsTimerId& id) {
        const std::lock_guard lock(mutex_);
        if (fd_ < 0) {
            return EPERM;
        }
        try {
            Timer timer{param, Now()};
            timer.due += Period(timer);
            const OsTimerId fresh = FreshId();
            timers_.emplace(fresh, timer);
            id = fresh;
        } catch (const std::bad_alloc&) {
            return ENOMEM;
        }
        Arm();
        return 0;
    }

    uint32_t Delete(OsTimerId id) {
        const std::lock_guard lock(mutex_);
        if (timers_.erase(id) == 0) {
            return ENOENT;
        }
        Arm();
        return 0;
    }

private:
    using Timers = std::map<OsTimerId, Timer>;

    // Signals are for the process's own threads.
    uint32_t StartThread() {
        sigset_t all;
        sigset_t former;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former);
        pthread_t thread{};
        const int error = pthread_create(
            &thread, nullptr,
            [](void* manager) -> void* {
                static_cast<TimerManager*>(manager)->Run();
                return nullptr;
            },
            this);
        pthread_sigmask(SIG_SETMASK, &former, nullptr);
        if (error == 0) {
            pthread_setname_np(thread, "kivo_timer");
            pthread_detach(thread);
        }
        return static_cast<uint32_t>(error);
    }

    void Run() {
        while (Wait()) {
            RunDue();
        }
    }

    // Until the timer descriptor says that something is due; false when it is no more.
    bool Wait() const {
        uint64_t expirations = 0;
        return read(fd_, &expirations, sizeof expirations) >= 0 || errno == EINTR;
    }

    void RunDue() {
        std::unique_lock lock(mutex_);
        for (auto next = Next(); next != timers_.end() && next->second.due <= Now(); next = Next()) {
            const OsTimerId id = next->first;
            const OsTimerParam param = next->second.param;
            if (param.repeat == 1) {
                // Calls that came too late are left out, not made up for.
                const int64_t period = Period(next->second);
                next->second.due += period * (1 + (Now() - next->second.due) / period);
            }
            lock.unlock();
            param.callback(param.userData);
            lock.lock();
            if (param.repeat == 0) {
                timers_.erase(id);
            }
        }
        Arm();
    }

    Timers::iterator Next() {
        return std::min_element(timers_.begin(), timers_.end(),
                                [](const auto& a, const auto& b) { return a.second.due < b.second.due; });
    }

    // Wakes the thread when the next timer is due, and never when there is none.
    void Arm() {
        const auto next = Next();
        const int64_t due = next == timers_.end() ? 0 : next->second.due;
        itimerspec when{};
        when.it_value.tv_sec = due / kNanosecondsPerSecond;
        when.it_value.tv_nsec = due % kNanosecondsPerSecond;
        timerfd_settime(fd_, TFD_TIMER_ABSTIME, &when, nullptr);
    }

    OsTimerId FreshId() {
        do {
            ++lastId_;
        } while (lastId_ == 0 || timers_.contains(lastId_));
        return lastId_;
    }

    std::mutex mutex_;
    int fd_ = -1;
    Timers timers_;
    OsTimerId lastId_ = 0;
};

}  // namespace

uint32_t OsTmrManagerInit(uint32_t tick, uint32_t priority, uint32_t flags) {
    if (tick == 0 || priority != 0 || flags != 0) {
        return EINVAL;
    }
    return TimerManager::Instance().Start();
}

uint32_t OsTmrCreate(const struct OsTimerParam* param, OsTimerId* id) {
    if (param == nullptr || id == nullptr || !kivo::IsValid(*param)) {
        return EINVAL;
    }
    return TimerManager::Instance().Create(*param, *id);
}

uint32_t OsTmrDelete(OsTimerId id) {
    return TimerManager::Instance().Delete(id);
}
