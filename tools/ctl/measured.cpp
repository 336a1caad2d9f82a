// The events of an owner and those of the server come to one thread, in the order in which the bus had them.
#include "measured.h"

namespace ominspect::ctl {

void Measured::Listen(client::Session& session, const std::stop_token& cancel) {
    const auto inventory = session.OwnersOf({}, {std::chrono::milliseconds(500), cancel});
    if (!inventory || session.Subscribe()) {
        return;
    }
    for (const client::Item& item : inventory->items) {
        if (item.name == item_) {
            for (const client::ItemOwner& owner : item.owners) {
                (void)session.SubscribePerfData(owner.process, [this](const client::PerfData& data) { Take(data); });
            }
        }
    }
}

void Measured::HearRun(const client::ItemResult& result) {
    if (result.name == item_) {
        const std::lock_guard lock(mutex_);
        isComplete_ = result.status != "running";
        if (!isComplete_) {
            values_.clear();  // of a run before
        }
        heard_.notify_all();
    }
}

void Measured::Take(const client::PerfData& data) {
    if (data.item == item_) {
        const std::lock_guard lock(mutex_);
        values_ = data.values;
        isComplete_ = true;
        heard_.notify_all();
    }
}

std::vector<client::PerfValue> Measured::Values() {
    std::unique_lock lock(mutex_);
    (void)heard_.wait_for(lock, std::chrono::seconds(1), [this] { return isComplete_; });
    return values_;
}

}  // namespace ominspect::ctl
