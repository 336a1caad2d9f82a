// A sleep is a wait on a condition that never holds, as only such a wait ends with a token.
#include "waiting.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace ominspect::client {

std::optional<Error> EndOf(const Limit& limit) {
    if (limit.Cancelled()) {
        return Error{ErrorCode::kCancelled, "cancelled"};
    }
    if (limit.Left().count() == 0) {
        return Error{ErrorCode::kTimeLimit, "the time limit is over"};
    }
    return std::nullopt;
}

void Pause(std::chrono::milliseconds time, const Limit& limit) {
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    (void)never.wait_until(lock, limit.Cancel(), std::min(limit.Deadline(), Limit::Clock::now() + time),
                           [] { return false; });
}

}  // namespace ominspect::client
