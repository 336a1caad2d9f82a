// The duration is that of a clock which nobody sets.
#include "model/runs.h"

namespace ominspect::gateway {

Event Runs::Take(const client::ItemResult& result, TimePoint now, Clock::time_point tick) {
    const std::lock_guard lock(mutex_);
    Event event;
    event.time = now;
    event.item = result.name;
    event.status = result.status;
    event.text = result.text;
    if (result.status == "running") {
        event.kind = EventKind::kBegan;
        const auto claim = claims_.find(result.name);
        event.cause = claim == claims_.end() ? "" : claim->second;
        event.begin = now;
        runs_[result.name] = {now, tick, event.cause};
        return event;
    }
    event.kind = EventKind::kResult;
    const auto run = runs_.find(result.name);
    if (run != runs_.end()) {
        event.begin = run->second.begin;
        event.duration = std::chrono::duration_cast<std::chrono::milliseconds>(tick - run->second.tick);
        event.cause = run->second.cause;
        runs_.erase(run);
    }
    return event;
}

void Runs::Claim(const std::string& item, const std::string& cause) {
    const std::lock_guard lock(mutex_);
    claims_.emplace(item, cause);
}

void Runs::Release(const std::string& item, const std::string& cause) {
    const std::lock_guard lock(mutex_);
    const auto [begin, end] = claims_.equal_range(item);
    for (auto claim = begin; claim != end; ++claim) {
        if (claim->second == cause) {
            claims_.erase(claim);
            return;
        }
    }
}

void Runs::Forget() {
    const std::lock_guard lock(mutex_);
    runs_.clear();
}

}  // namespace ominspect::gateway
