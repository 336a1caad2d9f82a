// The timers of a process: when each is due, and which of them run. Threads and clocks are the platform's.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "kivo/os_timer.h"

namespace kivo {

/// Not thread-safe. Times are in units of the platform's clock, since any moment.
class TimerTable {
public:
    /// `second` is how many units a second has.
    explicit TimerTable(int64_t second) : second_(second) {}

    /// Starts a timer. Throws std::bad_alloc.
    OsTimerId Add(const OsTimerParam& param, int64_t now);

    /// False when there is no such timer.
    bool Remove(OsTimerId id);

    void Clear() { timers_.clear(); }

    /// When the next callback must begin; nothing when none will. Timers that run are not due again before they end.
    std::optional<int64_t> NextDue() const;

    /// A callback that must be called now.
    struct Call {
        OsTimerId id;
        OsTimerParam param;
    };

    /// The one that has been due for the longest time, if any is due; it runs from now on.
    std::optional<Call> Begin(int64_t now);

    /// The callback has returned. A one-shot timer goes. A repeating one is due again at its next full period: calls
    /// that came too late are left out.
    void End(OsTimerId id, int64_t now);

    /// Whether there are timers that do not run.
    bool HasWaiting() const { return NextDue().has_value(); }

    /// The records of all timers, oldest first.
    std::vector<OsTimerParam> Params() const;

private:
    struct Timer {
        OsTimerParam param;
        int64_t due;
        bool running;
    };

    std::map<OsTimerId, Timer> timers_;
    OsTimerId lastId_ = 0;
    int64_t second_;
};

}  // namespace kivo
