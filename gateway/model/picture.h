// The present state of the terminal, as far as the gateway knows it: the model that every consumer shows.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "model/event.h"
#include "ominspect/client/types.h"

namespace ominspect::gateway {

// "not-idle": it runs since before the gateway looked, or holds a result. "unknown": no owner, and not known to hold
// anything.
enum class ItemState { kIdle, kRunning, kNotIdle, kUnknown };
const char* WordOf(ItemState state);  // "idle", "running", "not-idle", "unknown"

struct LastResult {
    std::string status;
    std::string text;
    std::string cause;
    TimePoint time;
    std::optional<TimePoint> begin;
    std::optional<std::chrono::milliseconds> duration;
    std::uint64_t seq = 0;
};

struct ItemView {
    std::string name;
    std::optional<client::ConfiguredItem> configuration;
    std::vector<client::ItemOwner> owners;
    ItemState state = ItemState::kUnknown;
    std::optional<TimePoint> runningSince;
    std::optional<LastResult> last;
};

struct ServerView {
    bool isUp = false;
    std::optional<bool> isBusy;  // the server tells changes only: not known until the first one, nor after a loss
    std::uint64_t restarts = 0;  // that the gateway saw
    TimePoint since;             // of its last coming or leaving
};

struct State {
    ServerView server;
    std::vector<std::string> order;  // of the items: as configured, then the others by name
    std::map<std::string, ItemView> items;
    std::vector<std::string> silent;  // processes that do not say what they own
    std::uint32_t configured = 0;
};

// Any thread. Events come from the feed, what is asked for from the watcher.
class Picture {
public:
    // After a gap that is a loss no item is said to run, and all are unclear.
    void Apply(const Event& event);
    // False: nothing has changed.
    bool SetInventory(const client::Inventory& inventory);
    bool SetState(const std::string& name, client::ItemState state);
    // The last result from before the gateway's start; a newer one stays.
    void SetLast(const std::string& name, const LastResult& last);

    // An item of which the server must be asked whether it is idle; empty: there is none. The same item is not named
    // again until something has happened to it.
    std::string TakeUnclear();
    void SetUnclear(const std::string& item);
    // The server tells nobody when an item is reset, which also happens to each item at the end of its group. So all
    // items that are not idle become unclear.
    void SetHeldUnclear();

    // Looks at the state; `look` must not wait.
    void Read(const std::function<void(const State&)>& look) const;

    // Rises with every change.
    std::uint64_t Version() const;

private:
    ItemView& Item(const std::string& name);
    // No item is said to run any more; those that were are unclear.
    void EndRuns();

    mutable std::mutex mutex_;  // guards everything below
    State state_;
    std::uint64_t version_ = 1;
    std::set<std::string> unclear_;
    ItemView spare_;  // stands in for items beyond the most that are kept
    bool wasUp_ = false;
};

}  // namespace ominspect::gateway
