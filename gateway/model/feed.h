// The one path of all events: they are numbered, kept, and then told to every consumer in the same order.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "model/event.h"

namespace ominspect::gateway {

// Where numbered events are kept before they are told.
class Keeper {
public:
    virtual ~Keeper() = default;

    // The highest number that is kept; 0 while that is not known.
    virtual std::uint64_t LastSeq() = 0;

    // Takes an event without waiting.
    virtual void Keep(const Event& event) = 0;

    // Waits until all that was taken is kept, or is known not to be, or the time is over.
    virtual void Settle(std::chrono::milliseconds limit) = 0;
};

class Feed {
public:
    using Consumer = std::function<void(const Event&)>;

    // `keeper` may be null. Without a last number from it the numbers begin at `firstSeq`.
    Feed(Keeper* keeper, std::uint64_t firstSeq);
    ~Feed();
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    // Consumers are called on the feed's thread, in the order in which they subscribed, and must not throw or wait. To
    // be called before Start.
    void Subscribe(Consumer consumer) { consumers_.push_back(std::move(consumer)); }
    void Start();

    // Tells what was posted so far, and ends.
    void Stop();

    // Any thread, without waiting. When nobody keeps up, the event is lost, and a gap is told in its place, as soon as
    // the feed is woken.
    void Post(Event event);
    // The same for an event that there is no memory for: a gap is told in its place.
    void Lose();

    // Rises with each wake-up of the feed; if it does not, the feed hangs.
    std::uint64_t Rounds() const { return rounds_; }
    void Wake();

    // The highest number that was told.
    std::uint64_t ToldSeq() const { return told_; }
    std::uint64_t LostEvents() const { return lost_; }

private:
    void Run();
    void Tell(std::deque<Event>& events);
    // The caller holds the lock.
    void NoteLoss(TimePoint time);
    // What was lost becomes a gap. The caller holds the lock.
    void AddGap(TimePoint end);

    Keeper* const keeper_;
    std::vector<Consumer> consumers_;
    std::uint64_t next_;  // of the feed's thread
    std::atomic<std::uint64_t> told_{0};
    std::atomic<std::uint64_t> rounds_{0};
    std::atomic<std::uint64_t> lost_{0};

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    std::deque<Event> posted_;
    std::optional<TimePoint> lostSince_;
    bool isWoken_ = false;
    bool isEnding_ = false;
    std::thread thread_;
};

}  // namespace ominspect::gateway
