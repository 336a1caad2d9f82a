// A result belongs to the request that was sent on the same lane for the same item.
#include "inbox.h"

#include <algorithm>
#include <utility>

#include "failure.h"

namespace ominspect::client {
namespace {

// The most records that are kept. Nobody takes the records of cancelled groups.
constexpr std::size_t kMaxRecords = 16;
// An owner may report "running" as often as it likes; the newest results are kept.
constexpr std::size_t kMaxResults = 1024;

}  // namespace

void Inbox::Put(const Address& address, Result<ItemResult> result) {
    const std::lock_guard lock(mutex_);
    const auto found = boxes_.find(address);
    if (found == boxes_.end()) {
        return;
    }
    Box& box = found->second;
    if (box.origin == RunOrigin::kUnknown) {
        // Event 8 comes before the first result of a run. An unknown item has a result, but no run.
        const bool isOwn = box.kind == RequestKind::kCommand || (result && IsUnknownItem(*result));
        box.origin = isOwn ? RunOrigin::kOwn : RunOrigin::kJoined;
    }
    if (box.kind == RequestKind::kCommand || !result || result->status != "running") {
        box.isOwed = false;
    }
    if (!box.isExpected) {
        if (!box.isOwed) {
            boxes_.erase(found);
        }
        return;
    }
    if (box.results.size() == kMaxResults) {
        box.results.pop_front();
    }
    box.results.push_back(std::move(result));
    changed_.notify_all();
}

void Inbox::RunBegan(const Address& address) {
    const std::lock_guard lock(mutex_);
    const auto found = boxes_.find(address);
    if (found != boxes_.end() && found->second.origin == RunOrigin::kUnknown) {
        found->second.origin = RunOrigin::kOwn;
    }
}

void Inbox::Put(std::uint32_t taskId, Result<GroupRecord> record) {
    const std::lock_guard lock(mutex_);
    if (records_.size() == kMaxRecords) {
        records_.pop_front();
    }
    records_.push_back({taskId, std::move(record)});
    changed_.notify_all();
}

void Inbox::ServerRestarted() {
    const std::lock_guard lock(mutex_);
    ++serverLife_;
    std::erase_if(boxes_, [](const auto& entry) { return !entry.second.isExpected; });
    for (auto& [address, box] : boxes_) {
        box.isOwed = false;
    }
    changed_.notify_all();
}

void Inbox::BusLost() {
    const std::lock_guard lock(mutex_);
    busLost_ = true;
    changed_.notify_all();
}

std::uint64_t Inbox::ServerLife() const {
    const std::lock_guard lock(mutex_);
    return serverLife_;
}

std::optional<std::size_t> Inbox::Expect(const std::string& item, RequestKind kind) {
    const std::lock_guard lock(mutex_);
    const Box box{.kind = kind, .number = ++requests_, .results = {}};
    auto oldest = boxes_.end();
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
        const auto [entry, fresh] = boxes_.try_emplace({lane, item}, box);
        if (fresh) {
            return lane;
        }
        const bool forgotten = !entry->second.isExpected;
        if (forgotten && (oldest == boxes_.end() || entry->second.number < oldest->second.number)) {
            oldest = entry;
        }
    }
    // All lanes are taken: by requests that were lost, for instance, whose results never come.
    if (oldest == boxes_.end()) {
        return std::nullopt;
    }
    oldest->second = box;
    return oldest->first.lane;
}

void Inbox::Forget(const Address& address) {
    const std::lock_guard lock(mutex_);
    const auto found = boxes_.find(address);
    if (found == boxes_.end()) {
        return;
    }
    found->second.isExpected = false;
    if (!found->second.isOwed) {
        boxes_.erase(found);
    }
}

void Inbox::Withdraw(const Address& address) {
    const std::lock_guard lock(mutex_);
    boxes_.erase(address);
}

RunOrigin Inbox::Origin(const Address& address) const {
    const std::lock_guard lock(mutex_);
    const auto found = boxes_.find(address);
    return found != boxes_.end() ? found->second.origin : RunOrigin::kUnknown;
}

template <typename T, typename Take>
Result<std::optional<T>> Inbox::Wait(std::uint64_t life, const Limit& limit, Limit::Clock::time_point deadline,
                                     Take take) {
    std::unique_lock lock(mutex_);
    std::optional<Result<T>> taken;
    (void)changed_.wait_until(lock, limit.Cancel(), deadline, [&] {
        taken = take();
        return taken || busLost_ || serverLife_ != life;
    });
    if (taken) {
        return *taken ? Result<std::optional<T>>(std::optional<T>(std::move(**taken))) : taken->Failure();
    }
    if (limit.Cancelled()) {
        return Error{ErrorCode::kCancelled, "cancelled"};
    }
    if (busLost_) {
        return BusLostError();
    }
    if (serverLife_ != life) {
        return RestartError();
    }
    return std::optional<T>();
}

Result<std::optional<ItemResult>> Inbox::TakeResult(const Address& address, std::uint64_t life, const Limit& limit,
                                                    Limit::Clock::time_point deadline) {
    return Wait<ItemResult>(life, limit, deadline, [this, &address]() -> std::optional<Result<ItemResult>> {
        const auto found = boxes_.find(address);
        if (found == boxes_.end() || found->second.results.empty()) {
            return std::nullopt;
        }
        Result<ItemResult> result = std::move(found->second.results.front());
        found->second.results.pop_front();
        return result;
    });
}

Result<std::optional<GroupRecord>> Inbox::TakeRecord(std::uint32_t taskId, std::uint64_t life, const Limit& limit,
                                                     Limit::Clock::time_point deadline) {
    return Wait<GroupRecord>(life, limit, deadline, [this, taskId]() -> std::optional<Result<GroupRecord>> {
        const auto found = std::find_if(records_.begin(), records_.end(),
                                        [taskId](const Record& record) { return record.taskId == taskId; });
        if (found == records_.end()) {
            return std::nullopt;
        }
        Result<GroupRecord> record = std::move(found->content);
        records_.erase(found);
        return record;
    });
}

}  // namespace ominspect::client
