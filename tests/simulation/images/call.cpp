// Virtual time stands still while a thread can run, so a call that waits for nothing returns at the very time at which
// it is cancelled.
#include "images/call.h"

#include <string>

#include "images/requester.h"

namespace {

using namespace ominspect::client;
using std::chrono::microseconds;
using std::chrono::milliseconds;

bool g_cancelled = false;

milliseconds PickLimit() {
    static constexpr uint32_t kLimits[] = {10000, 500, 60000, 400000, 1};
    return milliseconds(kLimits[SimPick(5)]);
}

// When a call is cancelled, counted from its beginning; nothing: never. A reply comes within a millisecond, a result
// within minutes.
std::optional<microseconds> PickCancellation() {
    static constexpr milliseconds kWithin[] = {milliseconds(60000), milliseconds(8000), milliseconds(400),
                                               milliseconds(20),    milliseconds(1),    milliseconds(0)};
    constexpr uint32_t kNever = 6;
    if (!g_cancelled) {
        return std::nullopt;
    }
    const uint32_t which = SimPick(kNever + std::size(kWithin));
    if (which < kNever) {
        return std::nullopt;
    }
    return microseconds(kWithin[which - kNever]) * (1 + SimPick(64)) / 64;
}

}  // namespace

void LetCallsBeCancelled(bool cancelled) {
    g_cancelled = cancelled;
}

Call::Call(const char* what, milliseconds afterCancellation, milliseconds afterLimit)
    : what_(what),
      afterCancellation_(afterCancellation),
      source_(std::nostopstate),
      limit_(PickLimit()),
      end_(limit_.Deadline() + afterLimit) {
    const auto cancellation = PickCancellation();
    if (!cancellation) {
        return;
    }
    source_ = std::stop_source();
    limit_ = Limit(limit_.Left(), source_.get_token());
    if (cancellation->count() == 0) {
        Cancel();
    } else {
        thread_ = std::thread([this, time = *cancellation] { CancelAfter(time); });
    }
}

Call::~Call() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Call::CancelAfter(microseconds time) {
    {
        std::unique_lock lock(mutex_);
        if (changed_.wait_for(lock, time, [this] { return isOver_; })) {
            return;
        }
    }
    Cancel();
}

void Call::Cancel() {
    {
        const std::lock_guard lock(mutex_);
        cancelledAt_ = Limit::Clock::now();
    }
    (void)source_.request_stop();
}

std::optional<Limit::Clock::duration> Call::SinceCancellation() const {
    const std::lock_guard lock(mutex_);
    return cancelledAt_ ? std::optional(Limit::Clock::now() - *cancelledAt_) : std::nullopt;
}

void Call::Check(const std::optional<Error>& error) {
    const auto violate = [this](const char* text) { SimViolation((std::string(what_) + text).c_str()); };
    if (Limit::Clock::now() > end_) {
        violate(" lasted longer than its limit");
    }
    const auto since = SinceCancellation();
    if (since > afterCancellation_) {
        violate(" went on after it was cancelled");
    }
    if (error && error->code == ErrorCode::kCancelled) {
        if (!since) {
            violate(" says that it was cancelled, and nobody did");
        }
        SimReached("client: call cancelled");
    } else if (since) {
        SimReached(error ? "client: call cancelled, another error" : "client: call cancelled, result was there");
    }
}
