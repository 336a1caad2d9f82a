// A call that cannot be ended early, with a limit all the same.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "call/deadline.h"

namespace room {

// Runs the call on a thread of its own, which is left behind if it has not returned by the end of the object:
// everything that the call uses must belong to it.
template <typename T>
class LimitedCall {
public:
    explicit LimitedCall(std::function<T()> call) {
        std::thread([shared = shared_, call = std::move(call)] {
            T value = call();
            const std::scoped_lock guard(shared->lock);
            shared->value = std::move(value);
            shared->done.notify_one();
        }).detach();
    }

    // The value, once; nothing when the call has not returned in time.
    std::optional<T> Wait(const Deadline& deadline) {
        std::unique_lock guard(shared_->lock);
        shared_->done.wait_for(guard, deadline.Left(), [this] { return shared_->value.has_value(); });
        return std::move(shared_->value);
    }

private:
    struct Shared {
        std::mutex lock;  // guards the value
        std::condition_variable done;
        std::optional<T> value;
    };
    std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

}  // namespace room
