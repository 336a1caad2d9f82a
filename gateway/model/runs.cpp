// Durations are measured by a clock that nobody sets.
#include "model/runs.h"

#include <algorithm>

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
        const auto [first, last] = claims_.equal_range(result.name);
        const auto claim = std::find_if(first, last, [](const auto& one) { return !one.second.hasEnded; });
        event.cause = claim == last ? "" : claim->second.cause;
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
        if (const auto claim = Find(event.item, event.cause, false); claim != claims_.end()) {
            claim->second.hasEnded = true;
            ended_.notify_all();
        }
    }
    return event;
}

void Runs::Claim(const std::string& item, const std::string& cause) {
    const std::lock_guard lock(mutex_);
    claims_.emplace(item, Claimed{cause});
}

void Runs::Release(const std::string& item, const std::string& cause) {
    const std::lock_guard lock(mutex_);
    if (const auto claim = Find(item, cause); claim != claims_.end()) {
        claims_.erase(claim);
    }
}

void Runs::AwaitEnd(const std::string& item, const std::string& cause, Clock::time_point limit) {
    std::unique_lock lock(mutex_);
    (void)ended_.wait_until(lock, limit, [&] {
        const auto claim = Find(item, cause);
        return claim == claims_.end() || claim->second.hasEnded;
    });
}

Runs::Claims::iterator Runs::Find(const std::string& item, const std::string& cause, bool alsoEnded) {
    const auto [begin, end] = claims_.equal_range(item);
    const auto claim = std::find_if(
        begin, end, [&](const auto& one) { return one.second.cause == cause && (alsoEnded || !one.second.hasEnded); });
    return claim == end ? claims_.end() : claim;
}

void Runs::Forget() {
    const std::lock_guard lock(mutex_);
    runs_.clear();
}

}  // namespace ominspect::gateway
