// An item stays once it was seen: its last result is still of interest when nobody owns it any more.
#include "model/picture.h"

#include <algorithm>

namespace ominspect::gateway {
namespace {

// Names come from every process on the bus.
constexpr std::size_t kMostItems = 4096;

bool IsSame(const std::vector<client::ItemOwner>& a, const std::vector<client::ItemOwner>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& one, const auto& other) {
        return one.process == other.process && one.timeLimit == other.timeLimit &&
               one.isRegistered == other.isRegistered;
    });
}

bool IsSame(const std::optional<client::ConfiguredItem>& a, const std::optional<client::ConfiguredItem>& b) {
    return a.has_value() == b.has_value() && (!a || (a->level == b->level && a->isSync == b->isSync));
}

}  // namespace

const char* WordOf(ItemState state) {
    switch (state) {
        case ItemState::kIdle:
            return "idle";
        case ItemState::kRunning:
            return "running";
        case ItemState::kNotIdle:
            return "not-idle";
        case ItemState::kUnknown:
            break;
    }
    return "unknown";
}

ItemView& Picture::Item(const std::string& name) {
    if (state_.items.size() >= kMostItems && !state_.items.contains(name)) {
        spare_ = {};
        return spare_;
    }
    const auto [found, isNew] = state_.items.try_emplace(name);
    if (isNew) {
        found->second.name = name;
        const auto configured = std::find_if(state_.order.begin(), state_.order.end(), [&](const std::string& one) {
            return !state_.items.at(one).configuration && one > name;
        });
        state_.order.insert(configured, name);
        if (!client::CheckItemName(name)) {
            unclear_.insert(name);
        }
    }
    return found->second;
}

void Picture::EndRuns() {
    for (auto& [name, item] : state_.items) {
        if (item.state == ItemState::kRunning) {
            item.state = ItemState::kNotIdle;
            item.runningSince.reset();
            unclear_.insert(name);
        }
    }
}

void Picture::Apply(const Event& event) {
    const std::lock_guard lock(mutex_);
    ++version_;
    if (event.kind == EventKind::kServer) {
        state_.server.isUp = event.status == "up";
        state_.server.restarts += state_.server.isUp && wasUp_ ? 1 : 0;
        wasUp_ = wasUp_ || state_.server.isUp;
        state_.server.since = event.time;
        state_.server.isBusy.reset();
        for (auto& [name, item] : state_.items) {
            item.state = ItemState::kUnknown;
            item.runningSince.reset();
            unclear_.insert(name);
        }
    } else if (event.kind == EventKind::kBusy) {
        state_.server.isBusy = event.status == "busy";
        if (!*state_.server.isBusy) {
            EndRuns();  // the server tells their ends before; what is left had an end that was lost
        }
    } else if (event.kind == EventKind::kGap && event.isLoss) {
        state_.server.isBusy.reset();
        EndRuns();
        for (const auto& [name, item] : state_.items) {
            unclear_.insert(name);
        }
    } else if (event.kind == EventKind::kBegan) {
        state_.server.isBusy = true;
        ItemView& item = Item(event.item);
        item.state = ItemState::kRunning;
        item.runningSince = event.begin;
    } else if (event.kind == EventKind::kResult) {
        ItemView& item = Item(event.item);
        item.state = ItemState::kNotIdle;
        item.runningSince.reset();
        unclear_.insert(event.item);
        if (history::IsFinal(event.status)) {
            item.last =
                LastResult{event.status, event.text, event.cause, event.time, event.begin, event.duration, event.seq};
        }
    }
}

bool Picture::SetInventory(const client::Inventory& inventory) {
    const std::lock_guard lock(mutex_);
    bool isChanged = state_.configured != inventory.configured || state_.silent != inventory.silent;
    state_.configured = inventory.configured;
    state_.silent = inventory.silent;
    std::map<std::string, const client::Item*> known;
    std::vector<std::string> order;
    for (const client::Item& item : inventory.items) {
        known.emplace(item.name, &item);
        order.push_back(item.name);
        (void)Item(item.name);
    }
    for (auto& [name, view] : state_.items) {
        const auto found = known.find(name);
        if (found == known.end()) {
            order.push_back(name);
        }
        const auto configuration = found == known.end() ? std::nullopt : found->second->configuration;
        const auto owners = found == known.end() ? std::vector<client::ItemOwner>() : found->second->owners;
        if (!IsSame(view.configuration, configuration) || !IsSame(view.owners, owners)) {
            isChanged = true;
            view.configuration = configuration;
            view.owners = owners;
            if (view.state != ItemState::kRunning) {
                unclear_.insert(name);
            }
        }
    }
    isChanged = isChanged || order != state_.order;
    state_.order = std::move(order);
    version_ += isChanged ? 1 : 0;
    return isChanged;
}

bool Picture::SetState(const std::string& name, client::ItemState state) {
    const std::lock_guard lock(mutex_);
    ItemView& item = Item(name);
    if (item.state == ItemState::kRunning) {
        return false;
    }
    const ItemState shown = state == client::ItemState::kNotIdle ? ItemState::kNotIdle
                            : item.owners.empty()                ? ItemState::kUnknown
                                                                 : ItemState::kIdle;
    const bool isChanged = shown != item.state;
    item.state = shown;
    version_ += isChanged ? 1 : 0;
    return isChanged;
}

void Picture::SetLast(const std::string& name, const LastResult& last) {
    const std::lock_guard lock(mutex_);
    ItemView& item = Item(name);
    if (!item.last || item.last->seq < last.seq) {
        item.last = last;
        ++version_;
    }
}

std::string Picture::TakeUnclear() {
    const std::lock_guard lock(mutex_);
    if (unclear_.empty()) {
        return {};
    }
    return std::move(unclear_.extract(unclear_.begin()).value());
}

void Picture::SetUnclear(const std::string& item) {
    const std::lock_guard lock(mutex_);
    unclear_.insert(item);
}

void Picture::SetHeldUnclear() {
    const std::lock_guard lock(mutex_);
    for (const auto& [name, item] : state_.items) {
        if (item.state == ItemState::kNotIdle) {
            unclear_.insert(name);
        }
    }
}

void Picture::Read(const std::function<void(const State&)>& look) const {
    const std::lock_guard lock(mutex_);
    look(state_);
}

std::uint64_t Picture::Version() const {
    const std::lock_guard lock(mutex_);
    return version_;
}

}  // namespace ominspect::gateway
