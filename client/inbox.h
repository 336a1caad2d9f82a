// What the server sends to a session by itself, and who waits for it.
#pragma once

#include <compare>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "ominspect/client/error.h"
#include "ominspect/client/limit.h"
#include "ominspect/client/types.h"

namespace ominspect::client {

// Where the results of one request arrive. A result names its item and nothing else; the server sends it to the task
// that asked. So that two requests for one item cannot get each other's results, this process has several such tasks,
// called lanes here. A lane carries one request of each item; the first lane is nearly always enough.
struct Address {
    std::size_t lane;
    std::string item;

    std::strong_ordering operator<=>(const Address&) const = default;
};

// Any thread may call its functions.
class Inbox {
public:
    static constexpr std::size_t kLanes = 16;

    // ---- the bus's side; a record that is none is put as the error that says so ----

    void Put(const Address& address, Result<ItemResult> result);  // dropped when nobody expects it
    void Put(std::uint32_t taskId, Result<GroupRecord> record);   // kept for a while: its task id may not be known yet
    void RunBegan(const Address& address);                        // the server told that it began a run of the item
    void ServerRestarted();  // what was expected of the former server will not come
    void BusLost();

    // ---- the requester's side ----

    // Which of the server's lives a request belongs to.
    std::uint64_t ServerLife() const;

    // Begins to keep the results of a request; gives the lane by which it must be asked for. Nothing when every lane
    // has somebody who waits for this item.
    std::optional<std::size_t> Expect(const std::string& item, RequestKind kind);

    // Nobody waits any more, but the results may still come: until the last one, no other request of the item gets this
    // lane, unless there is no other.
    void Forget(const Address& address);

    // The request was not sent after all.
    void Withdraw(const Address& address);

    // What is known so far of where an expected run comes from.
    RunOrigin Origin(const Address& address) const;

    // The next result of an expected request, or a group's record; nothing when the deadline passes. Cancelled,
    // BusUnreachable, ServerAbsent, MalformedReply.
    Result<std::optional<ItemResult>> TakeResult(const Address& address, std::uint64_t life, const Limit& limit,
                                                 Limit::Clock::time_point deadline);
    Result<std::optional<GroupRecord>> TakeRecord(std::uint32_t taskId, std::uint64_t life, const Limit& limit,
                                                  Limit::Clock::time_point deadline);

private:
    // The results of one request, from its beginning until its last result has come and nobody waits.
    struct Box {
        RequestKind kind;
        std::uint64_t number;  // counts the requests
        bool isExpected = true;
        bool isOwed = true;  // a last result is still to come
        RunOrigin origin = RunOrigin::kUnknown;
        std::deque<Result<ItemResult>> results;
    };

    struct Record {
        std::uint32_t taskId;
        Result<GroupRecord> content;
    };

    // Waits until `take` gives something.
    template <typename T, typename Take>
    Result<std::optional<T>> Wait(std::uint64_t life, const Limit& limit, Limit::Clock::time_point deadline, Take take);

    mutable std::mutex mutex_;  // guards everything below
    std::condition_variable_any changed_;
    std::map<Address, Box> boxes_;
    std::deque<Record> records_;
    std::uint64_t requests_ = 0;
    std::uint64_t serverLife_ = 0;
    bool busLost_ = false;
};

}  // namespace ominspect::client
