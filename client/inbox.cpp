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

void Inbox::Put(ItemResult result) {
    const std::lock_guard lock(mutex_);
    const auto found = results_.find(result.name);
    if (found == results_.end()) return;
    if (found->second.size() == kMaxResults) found->second.pop_front();
    found->second.push_back(std::move(result));
    changed_.notify_all();
}

void Inbox::Put(GroupRecord record) {
    const std::lock_guard lock(mutex_);
    if (records_.size() == kMaxRecords) records_.pop_front();
    records_.push_back(std::move(record));
    changed_.notify_all();
}

void Inbox::ServerRestarted() {
    const std::lock_guard lock(mutex_);
    ++serverLife_;
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

bool Inbox::Expect(const std::string& item) {
    const std::lock_guard lock(mutex_);
    return results_.try_emplace(item).second;
}

void Inbox::Forget(const std::string& item) {
    const std::lock_guard lock(mutex_);
    results_.erase(item);
}

template <typename T, typename Take>
Result<std::optional<T>> Inbox::Wait(std::uint64_t life, const Limit& limit, Limit::Clock::time_point deadline,
                                     Take take) {
    std::unique_lock lock(mutex_);
    std::optional<T> taken;
    (void)changed_.wait_until(lock, limit.Cancel(), deadline, [&] {
        taken = take();
        return taken || busLost_ || serverLife_ != life;
    });
    if (taken) return taken;
    if (limit.Cancelled()) return Error{ErrorCode::kCancelled, "cancelled"};
    if (busLost_) return Error{ErrorCode::kBusUnreachable, "the message bus was lost"};
    if (serverLife_ != life) return Error{ErrorCode::kServerAbsent, "the server restarted and forgot the run"};
    return taken;
}

Result<std::optional<ItemResult>> Inbox::TakeResult(const std::string& item, std::uint64_t life, const Limit& limit,
                                                    Limit::Clock::time_point deadline) {
    return Wait<ItemResult>(life, limit, deadline, [this, &item]() -> std::optional<ItemResult> {
        const auto found = results_.find(item);
        if (found == results_.end() || found->second.empty()) return std::nullopt;
        ItemResult result = std::move(found->second.front());
        found->second.pop_front();
        return result;
    });
}

Result<std::optional<GroupRecord>> Inbox::TakeRecord(std::uint32_t taskId, std::uint64_t life, const Limit& limit,
                                                     Limit::Clock::time_point deadline) {
    return Wait<GroupRecord>(life, limit, deadline, [this, taskId]() -> std::optional<GroupRecord> {
        const auto found = std::find_if(records_.begin(), records_.end(),
                                        [taskId](const GroupRecord& record) { return record.taskId == taskId; });
        if (found == records_.end()) return std::nullopt;
        GroupRecord record = std::move(*found);
        records_.erase(found);
        return record;
    });
}

}  // namespace ominspect::client
