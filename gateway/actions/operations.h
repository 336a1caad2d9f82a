// What somebody asked for through the gateway: runs, groups, stops and resets, each with its progress and its outcome.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "common/json.h"
#include "common/times.h"
#include "model/feed.h"
#include "model/picture.h"
#include "model/runs.h"
#include "watch/link.h"

namespace ominspect::gateway {

enum class OperationKind { kRun, kGroup, kStop, kReset };
const char* WordOf(OperationKind kind);  // "run", "group", "stop", "reset"

struct Order {
    OperationKind kind;
    std::vector<std::string> items;  // one, but for a group
    std::string argument;
    std::chrono::seconds limit{310};
    std::string who;
};

// An item's part in an operation.
struct ItemOutcome {
    client::ItemResult result;
    std::optional<TimePoint> begin;  // where the server has told them
    std::optional<TimePoint> end;
};

// An operation as it is at one moment.
struct OperationView {
    std::uint64_t number = 0;
    OperationKind kind = OperationKind::kRun;
    std::vector<std::string> items;
    std::string who;
    TimePoint begin;
    std::optional<TimePoint> end;
    bool waits = false;  // for the end of somebody else's run or group
    std::optional<std::uint32_t> taskId;
    std::vector<ItemOutcome> results;
    std::optional<client::Error> error;
    std::uint64_t change = 0;  // the number of its last change, rising over all operations
};
const char* StateWordOf(const OperationView& operation);  // "waiting", "going-on", "ended"

// Any thread.
class Operations {
public:
    Operations(Link& link, Runs& runs, Picture& picture, Feed& feed)
        : link_(link), runs_(runs), picture_(picture), feed_(feed) {}
    ~Operations();
    Operations(const Operations&) = delete;
    Operations& operator=(const Operations&) = delete;

    // Begins an operation and gives its number. InvalidArgument; Refused: too many are under way.
    Result<std::uint64_t> Begin(Order order);

    // An operation's document; nothing when it is not known (any more).
    std::optional<json::Value> Find(std::uint64_t number) const;
    json::Value All() const;

    // The operations that have changed since the change of this number.
    std::vector<OperationView> Changed(std::uint64_t after) const;

    // Stops what the operation has started. False: no such operation is under way.
    bool Stop(std::uint64_t number);

    // Stops all, and waits for their ends.
    void StopAll();

private:
    struct Operation {
        Order order;
        OperationView view;
        bool isOver = false;  // its thread needs no lock any more
        std::jthread thread;
    };

    static json::Value JsonOf(const OperationView& operation);
    void Work(const std::stop_token& cancel, Operation& operation);
    std::optional<client::Error> CarryClaimed(const std::stop_token& cancel, Operation& operation);
    std::optional<client::Error> Carry(client::Session& session, const client::Limit& limit, Operation& operation);
    std::optional<client::Error> CarryGroup(client::Session& session, const client::Limit& limit, Operation& operation);
    // Changes an operation and tells of it.
    void Change(Operation& operation, const std::function<void(OperationView&)>& change);

    Link& link_;
    Runs& runs_;
    Picture& picture_;
    Feed& feed_;
    mutable std::mutex mutex_;  // guards everything below, and what is in an operation but its order
    std::list<std::unique_ptr<Operation>> operations_;
    std::uint64_t last_ = 0;
    std::uint64_t changes_ = 0;
    bool isEnding_ = false;
};

}  // namespace ominspect::gateway
