// Keeps the results and records that the server sends until their requesters take them.
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

    // NOLINTNEXTLINE(modernize-use-nullptr): the checker takes the 0 of a defaulted comparison for a pointer
    std::strong_ordering operator<=>(const Address&) const = default;
};

// Any thread may call its functions.
class Inbox {
public:
    static constexpr std::size_t kLanes = 16;

    // ---- called when messages arrive; a malformed record arrives as the error that says so ----

    void Put(const Address& address, Result<ItemResult> result);  // dropped if nobody expects it
    void Put(std::uint32_t taskId, Result<GroupRecord> record);   // kept, as its requester may not know the task id yet
    void RunBegan(const Address& address);                        // event 8 said that a run of the item began
    void ServerRestarted();                                       // the results that were expected before will not come
    void BusLost();

    // ---- called by requesters ----

    // Counts the server's restarts. A request belongs to the life in which it was sent.
    std::uint64_t ServerLife() const;

    // Begins to keep the results of a request, and gives the lane on which it must be sent. Nothing if on every lane
    // somebody waits for this item.
    std::optional<std::size_t> Expect(const std::string& item, RequestKind kind);

    // Nobody waits for the request any more, but its results may still come. Until the last one has come, no other
    // request for the item gets this lane, unless all lanes are in use.
    void Forget(const Address& address);

    // The request was not sent.
    void Withdraw(const Address& address);

    // What is known of where an expected run comes from.
    RunOrigin Origin(const Address& address) const;

    // The next result of an expected request, or a group's record; nothing when the deadline passes. Cancelled,
    // BusUnreachable, ServerAbsent, MalformedReply.
    Result<std::optional<ItemResult>> TakeResult(const Address& address, std::uint64_t life, const Limit& limit,
                                                 Limit::Clock::time_point deadline);
    Result<std::optional<GroupRecord>> TakeRecord(std::uint32_t taskId, std::uint64_t life, const Limit& limit,
                                                  Limit::Clock::time_point deadline);

private:
    // The results of one request. It is kept until the last result has come and nobody waits any more.
    struct Box {
        RequestKind kind;
        std::uint64_t number;  // older requests have smaller ones
        bool isExpected = true;
        bool isOwed = true;  // a last result is still to come
        RunOrigin origin = RunOrigin::kUnknown;
        std::deque<Result<ItemResult>> results;
    };

    struct Record {
        std::uint32_t taskId;
        Result<GroupRecord> content;
    };

    // Waits until `take` returns something.
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
