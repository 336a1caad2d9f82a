#include "watch/news.h"

#include <string>
#include <utility>

namespace ominspect::gateway {

client::Events News::EventsOfSession() {
    lost_ = 0;
    busLost_ = false;
    return {[this](const client::ItemResult& result) {
                feed_.Post(runs_.Take(result, std::chrono::system_clock::now(), Runs::Clock::now()));
            },
            [this](bool busy) { feed_.Post(EventNow(EventKind::kBusy, busy ? "busy" : "idle")); },
            [this] { busLost_ = true; }};
}

void News::TellLost(std::uint64_t lost) {
    if (lost == lost_) {
        return;
    }
    Event gap = EventNow(EventKind::kGap);
    gap.begin = gap.time;
    gap.text = std::to_string(lost - lost_) + " events of the server were lost";
    gap.isLoss = true;
    lost_ = lost;
    runs_.Forget();
    feed_.Post(std::move(gap));
}

}  // namespace ominspect::gateway
