// One thread watches the timer descriptor. When a callback is due, it calls it, and another thread watches meanwhile.
#include "kivo/os_timer.h"

#include <pthread.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <mutex>
#include <new>
#include <optional>

#include "common/records.h"
#include "common/timer_table.h"

namespace {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

// ns of CLOCK_MONOTONIC
int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

class TimerManager {
public:
    // Never destroyed: its threads run until the process has ended.
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
            id = timers_.Add(param, Now());
        } catch (const std::bad_alloc&) {
            return ENOMEM;
        }
        Arm();
        FindWatcher();
        return 0;
    }

    uint32_t Delete(OsTimerId id) {
        const std::lock_guard lock(mutex_);
        if (!timers_.Remove(id)) {
            return ENOENT;
        }
        Arm();
        return 0;
    }

private:
    using Lock = std::unique_lock<std::mutex>;
    using Call = kivo::TimerTable::Call;

    // The new thread watches. Signals are for the process's own threads.
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
            watched_ = true;
            pthread_setname_np(thread, "kivo_timer");
            pthread_detach(thread);
        }
        return static_cast<uint32_t>(error);
    }

    void Run() {
        Lock lock(mutex_);
        do {
            const Call call = WaitForDue(lock);
            watched_ = false;
            FindWatcher();
            lock.unlock();
            call.param.callback(call.param.userData);
            lock.lock();
            timers_.End(call.id, Now());
            Arm();
        } while (BecomeWatcher(lock));
    }

    Call WaitForDue(Lock& lock) {
        std::optional<Call> call;
        while (!(call = timers_.Begin(Now()))) {
            Arm();
            lock.unlock();
            uint64_t expirations = 0;
            (void)!read(fd_, &expirations, sizeof expirations);
            lock.lock();
        }
        return *call;
    }

    // Makes sure that somebody watches the timers that wait. Without a thread to be had, the next one that becomes free
    // does it.
    void FindWatcher() {
        if (watched_ || !timers_.HasWaiting()) {
            return;
        }
        if (spare_) {
            watched_ = true;
            spareWanted_ = true;
            wakeSpare_.notify_one();
        } else {
            StartThread();
        }
    }

    // False for a thread that is not needed any more: one that watches and one to spare are enough.
    bool BecomeWatcher(Lock& lock) {
        if (!watched_) {
            watched_ = true;
            return true;
        }
        if (spare_) {
            return false;
        }
        spare_ = true;
        wakeSpare_.wait(lock, [this] { return spareWanted_; });
        spare_ = spareWanted_ = false;
        return true;
    }

    // Wakes the watching thread when the next callback is due, and never when there is none.
    void Arm() {
        const int64_t due = timers_.NextDue().value_or(0);
        itimerspec when{};
        when.it_value.tv_sec = due / kNanosecondsPerSecond;
        when.it_value.tv_nsec = static_cast<long>(due % kNanosecondsPerSecond);
        timerfd_settime(fd_, TFD_TIMER_ABSTIME, &when, nullptr);
    }

    std::mutex mutex_;  // guards everything here; not held while a callback runs
    std::condition_variable wakeSpare_;
    int fd_ = -1;
    kivo::TimerTable timers_{kNanosecondsPerSecond};
    bool watched_ = false;  // a thread watches the descriptor, or is about to
    bool spare_ = false;    // a thread waits to be wanted as the watcher
    bool spareWanted_ = false;
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
