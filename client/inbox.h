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
    // ---- the bus's side; a record that is none is put as the error that says so ----

    void Put(const std::string& item, Result<ItemResult> result);  // dropped when nobody expects the item
    void Put(std::uint32_t taskId, Result<GroupRecord> record);    // kept for a while: its task id may not be known yet
    void ServerRestarted();  // what was expected of the former server will not come
    void BusLost();

    // ---- the requester's side ----

    // Which of the server's lives a request belongs to.
    std::uint64_t ServerLife() const;

    enum class Expected {
        kNew,      // the run is to be asked for
        kTakenUp,  // a forgotten run of the item still goes on, and its result is now this one's
        kTwice     // somebody waits for a run of the item already
    };

    // Begins to keep an item's results.
    Expected Expect(const std::string& item);

    // The run itself goes on in the server: its last result is still to come, and must not be taken for a later run's.
    void Forget(const std::string& item);

    // The run was not asked for after all.
    void Withdraw(const std::string& item);

    // The next result of an expected item, or a group's record; nothing when the deadline passes. Cancelled,
    // BusUnreachable, ServerAbsent, MalformedReply.
    Result<std::optional<ItemResult>> TakeResult(const std::string& item, std::uint64_t life, const Limit& limit,
                                                 Limit::Clock::time_point deadline);
    Result<std::optional<GroupRecord>> TakeRecord(std::uint32_t taskId, std::uint64_t life, const Limit& limit,
                                                  Limit::Clock::time_point deadline);

private:
    // The results of one item; from the first request on until its last result has come and nobody waits.
    struct Box {
        bool isExpected = true;
        bool isOwed = true;  // a last result is still to come
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
    std::map<std::string, Box> boxes_;
    std::deque<Record> records_;
    std::uint64_t serverLife_ = 0;
    bool busLost_ = false;
};

}  // namespace ominspect::client
