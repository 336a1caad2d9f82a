// A device has a handful of timers, so they are searched one by one.
#include "common/timer_table.h"

namespace kivo {

OsTimerId TimerTable::Add(const OsTimerParam& param, int64_t now) {
    do {
        ++lastId_;
    } while (lastId_ == 0 || timers_.contains(lastId_));
    timers_.emplace(lastId_, Timer{param, now + param.period * second_, false});
    return lastId_;
}

bool TimerTable::Remove(OsTimerId id) {
    return timers_.erase(id) != 0;
}

std::optional<int64_t> TimerTable::NextDue() const {
    std::optional<int64_t> next;
    for (const auto& [id, timer] : timers_) {
        if (!timer.running && (!next || timer.due < *next)) {
            next = timer.due;
        }
    }
    return next;
}

std::optional<TimerTable::Call> TimerTable::Begin(int64_t now) {
    const std::optional<int64_t> next = NextDue();
    if (!next || *next > now) {
        return std::nullopt;
    }
    for (auto& [id, timer] : timers_) {
        if (!timer.running && timer.due == *next) {
            timer.running = true;
            return Call{id, timer.param};
        }
    }
    return std::nullopt;
}

void TimerTable::End(OsTimerId id, int64_t now) {
    const auto found = timers_.find(id);
    if (found == timers_.end()) {
        return;  // deleted meanwhile
    }
    Timer& timer = found->second;
    if (timer.param.repeat == 0) {
        timers_.erase(found);
        return;
    }
    const int64_t period = timer.param.period * second_;
    timer.due += period * (1 + (now - timer.due) / period);
    timer.running = false;
}

std::vector<OsTimerParam> TimerTable::Params() const {
    std::vector<OsTimerParam> params;
    for (const auto& [id, timer] : timers_) {
        params.push_back(timer.param);
    }
    return params;
}

}  // namespace kivo
