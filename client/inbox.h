// What the server sends to a session by itself, and who waits for it.
#pragma once

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

// Any thread may call its functions.
class Inbox {
public:
    // ---- the bus's side ----

    void Put(ItemResult result);   // dropped when nobody expects the item
    void Put(GroupRecord record);  // kept for a while: it may come before its task id is known
    void ServerRestarted();        // what was expected of the former server will not come
    void BusLost();

    // ---- the requester's side ----

    // Which of the server's lives a request belongs to.
    std::uint64_t ServerLife() const;

    // Begins to keep an item's results; false when they are kept already.
    bool Expect(const std::string& item);
    void Forget(const std::string& item);

    // The next result of an expected item, or a group's record; nothing when the deadline passes. Cancelled,
    // BusUnreachable, ServerAbsent.
    Result<std::optional<ItemResult>> TakeResult(const std::string& item, std::uint64_t life, const Limit& limit,
                                                 Limit::Clock::time_point deadline);
    Result<std::optional<GroupRecord>> TakeRecord(std::uint32_t taskId, std::uint64_t life, const Limit& limit,
                                                  Limit::Clock::time_point deadline);

private:
    // Waits until `take` gives something.
    template <typename T, typename Take>
    Result<std::optional<T>> Wait(std::uint64_t life, const Limit& limit, Limit::Clock::time_point deadline, Take take);

    mutable std::mutex mutex_;  // guards everything below
    std::condition_variable_any changed_;
    std::map<std::string, std::deque<ItemResult>> results_;
    std::deque<GroupRecord> records_;
    std::uint64_t serverLife_ = 0;
    bool busLost_ = false;
};

}  // namespace ominspect::client
