// A start is counted by the session; only an absence must be asked for.
#include "common/presence.h"

#include <algorithm>
#include <utility>

namespace ominspect {
namespace {

constexpr std::chrono::seconds kPeriod{2};
constexpr std::chrono::seconds kLongestPeriod{60};

}  // namespace

Presence::Presence(client::Session& session, std::string asker)
    : session_(session), asker_(std::move(asker)), starts_(session.ServerStarts()), period_(kPeriod) {}

void Presence::Follow(const std::function<void(bool present)>& tell) {
    if (const std::uint64_t starts = session_.ServerStarts(); starts != starts_) {
        starts_ = starts;
        if (std::exchange(present_, true)) {
            tell(false);
        }
        tell(true);
    } else if (Clock::now() >= next_) {
        const bool before = present_;
        Ask();
        // When it comes, its start is counted.
        if (before && !present_) {
            tell(false);
        }
    }
}

void Presence::Ask() {
    const auto state = session_.State(asker_, std::chrono::seconds(1));
    const bool busy = !state && state.Failure().code == client::ErrorCode::kTimeLimit;
    if (!state && state.Failure().code == client::ErrorCode::kServerAbsent) {
        present_ = false;
        absence_ = state.Failure().text;
    }
    period_ = busy ? std::min(period_ * 2, kLongestPeriod) : kPeriod;
    next_ = Clock::now() + period_;
}

}  // namespace ominspect
