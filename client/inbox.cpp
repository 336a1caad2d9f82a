// What the server sends to a session by itself, and who waits for it.
#include "inbox.h"

#include <algorithm>
#include <utility>

namespace ominspect::client {
namespace {

// Records of tasks that nobody asks for: those of cancelled groups.
constexpr std::size_t kMaxRecords = 16;
// An owner may report "running" as often as it likes; the newest matter.
constexpr std::size_t kMaxResults = 1024;

}  // namespace

void Inbox::Put(const std::string& item, Result<ItemResult> result) {
    const std::lock_guard lock(mutex_);
    const auto found = boxes_.find(item);
    if (found == boxes_.end()) {
        return;
    }
    Box& box = found->second;
    if (!result || result->status != "running") {
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
    for (auto& [item, box] : boxes_) {
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

Inbox::Expected Inbox::Expect(const std::string& item) {
    const std::lock_guard lock(mutex_);
    const auto [entry, fresh] = boxes_.try_emplace(item);
    if (fresh) {
        return Expected::kNew;
    }
    if (entry->second.isExpected) {
        return Expected::kTwice;
    }
    entry->second.isExpected = true;
    return Expected::kTakenUp;
}

void Inbox::Forget(const std::string& item) {
    const std::lock_guard lock(mutex_);
    const auto found = boxes_.find(item);
    if (found == boxes_.end()) {
        return;
    }
    found->second.isExpected = false;
    found->second.results.clear();
    if (!found->second.isOwed) {
        boxes_.erase(found);
    }
}

void Inbox::Withdraw(const std::string& item) {
    const std::lock_guard lock(mutex_);
    boxes_.erase(item);
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
        return Error{ErrorCode::kBusUnreachable, "the message bus was lost"};
    }
    if (serverLife_ != life) {
        return Error{ErrorCode::kServerAbsent, "the server restarted and forgot the run"};
    }
    return std::optional<T>();
}

Result<std::optional<ItemResult>> Inbox::TakeResult(const std::string& item, std::uint64_t life, const Limit& limit,
                                                    Limit::Clock::time_point deadline) {
    return Wait<ItemResult>(life, limit, deadline, [this, &item]() -> std::optional<Result<ItemResult>> {
        const auto found = boxes_.find(item);
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
