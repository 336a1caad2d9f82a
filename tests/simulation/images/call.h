// A call of the client library: how long it may take, and a thread of the requester's that may cancel it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

#include "ominspect/client/error.h"
#include "ominspect/client/limit.h"

// Beyond the limit: what the library says that it may take to stop what it began.
constexpr std::chrono::milliseconds kGrace{20000};

class Call {
public:
    using Error = ominspect::client::Error;
    using Limit = ominspect::client::Limit;
    using milliseconds = std::chrono::milliseconds;

    /// It begins. It may last that much longer than until it is cancelled, or than its limit.
    explicit Call(const char* what, milliseconds afterCancellation = {}, milliseconds afterLimit = kGrace);

    /// The thread ends.
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    const Limit& TheLimit() const { return limit_; }

    /// It has returned with that: within its time, and as cancelled only if it was.
    void Check(const std::optional<Error>& error);

    template <typename T>
    void Check(const ominspect::client::Result<T>& result) {
        Check(result ? std::nullopt : std::optional(result.Failure()));
    }

    /// The time since it was cancelled; nothing if it was not.
    std::optional<Limit::Clock::duration> SinceCancellation() const;

private:
    void CancelAfter(std::chrono::microseconds time);
    void Cancel();

    const char* what_;
    milliseconds afterCancellation_;
    std::stop_source source_;
    Limit limit_;
    Limit::Clock::time_point end_;
    mutable std::mutex mutex_;  // guards what follows
    std::condition_variable changed_;
    bool isOver_ = false;
    std::optional<Limit::Clock::time_point> cancelledAt_;
    std::thread thread_;  // does not run in most calls
};

/// Whether the calls of this process are ever cancelled. Each process has an image of its own.
void LetCallsBeCancelled(bool cancelled);
