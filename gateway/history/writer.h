// The history's thread: keeps events, lets go of old ones, and goes on when the disk is well again.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "history/store.h"
#include "model/feed.h"
#include "model/parts.h"

namespace ominspect::gateway {

class Writer : public Keeper {
public:
    struct Settings {
        std::string path;
        std::string bus;
        Retention retention;
        std::chrono::milliseconds retryPeriod{5000};  // while nothing can be kept
        // After a gateway was killed, the time until which it had watched is known to within this period.
        std::chrono::milliseconds signPeriod{60000};
        // By which rows become old.
        std::function<TimePoint()> clock = [] { return std::chrono::system_clock::now(); };
    };

    // Opens the database; a failure is told as the state of the part "history", and it is tried again and again. `gap`
    // is called with each time in which nothing could be kept, the time before the gateway started included.
    Writer(Settings settings, Parts& parts, std::function<void(Event)> gap);
    ~Writer() override;

    // From now on. Before, events are taken and not kept.
    void Start();

    // Keeps what was taken and ends.
    void Stop();

    std::uint64_t LastSeq() override;
    void Keep(const Event& event) override;
    void Settle(std::chrono::milliseconds limit) override;

    std::uint64_t Bytes() const { return bytes_; }
    std::uint64_t LostEvents() const { return lost_; }

private:
    using Clock = std::chrono::steady_clock;

    void Run();
    void TryToOpen();
    void WriteBatch(const std::vector<Event>& events);
    std::optional<Error> WriteWithRoom(const std::vector<Event>& events);
    void Fail(const Error& error, std::size_t lost);
    void EndGap();
    void Tidy();
    // The time; none while the clock is set away from what it was when the writer was made: all rows might be old by
    // it.
    std::optional<TimePoint> TrustedTime() const;

    const Settings settings_;
    Parts& parts_;
    const std::function<void(Event)> gap_;

    const TimePoint bootTime_;  // of the system, by the clock as it was when the writer was made

    // ---- of the writer's thread, or before it runs ----
    std::unique_ptr<Store> store_;
    bool wasSetAside_ = false;
    bool isShort_ = false;  // of room
    std::optional<TimePoint> gapBegin_;
    std::string gapText_;
    Clock::time_point retry_;
    Clock::time_point tidy_;

    std::atomic<std::uint64_t> lastSeq_{0};
    std::atomic<std::uint64_t> bytes_{0};
    std::atomic<std::uint64_t> lost_{0};

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    std::condition_variable settled_;
    std::deque<Event> taken_;
    std::optional<TimePoint> droppedSince_;  // as too many were taken
    bool isWriting_ = false;
    bool isEnding_ = false;
    std::thread thread_;
};

}  // namespace ominspect::gateway
