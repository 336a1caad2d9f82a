// The listeners to the event stream: each with a bounded queue, all on the thread of their HTTP daemon.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/history_file.h"
#include "model/event.h"

namespace ominspect::gateway {

// An event as it goes over the line (Server-Sent Events).
std::string FrameOf(const Event& event);

// One listener. Whoever serves its connection takes frames, and is woken when there are some again.
class Listener {
public:
    // Called at most once after each Take that gave nothing; any thread.
    using Wake = std::function<void()>;

    enum class Taken { kSome, kNothingYet, kEnd };

    // The next bytes for the line, at most `size`. After kNothingYet `wake` is called when it is worth asking again.
    Taken Take(char* bytes, std::size_t size, std::size_t& count);

private:
    friend class Hub;
    using Frame = std::shared_ptr<const std::string>;

    std::mutex mutex_;  // guards everything below
    Wake wake_;
    std::deque<Frame> frames_;
    std::size_t offset_ = 0;  // of the first frame, that was taken
    std::size_t bytes_ = 0;
    bool isAsleep_ = false;
    bool isEnding_ = false;  // after the last frame
};

// Any thread.
class Hub {
public:
    // Rows of the history in their order, at most `limit`, after a number; nothing when there is no history.
    using Backlog = std::function<std::optional<std::vector<history::Row>>(std::uint64_t after, std::size_t limit)>;

    Hub(std::uint64_t told, Backlog backlog) : told_(told), backlog_(std::move(backlog)) {}

    // A new listener: it gets what came after `after` first, as far as that is known, else a "reset". Null: there are
    // as many as may be. It may wait for the history.
    std::shared_ptr<Listener> Add(std::optional<std::uint64_t> after, Listener::Wake wake);
    void Remove(const std::shared_ptr<Listener>& listener);

    void Tell(const Event& event);
    // Sends each listener a sign that the line is open, and so finds those that are gone.
    void Tick();
    // Ends all; no more come.
    void Close();

    std::size_t Count() const;
    std::uint64_t Dropped() const { return dropped_; }

private:
    using Frame = Listener::Frame;

    void Put(const std::shared_ptr<Listener>& listener, const Frame& frame);
    // What came after a number, up to another one; nothing when not all of it is known. It may wait for the history.
    std::optional<std::deque<Frame>> Missed(std::uint64_t after, std::uint64_t until) const;
    static void Wake(Listener& listener);

    std::atomic<std::uint64_t> told_;
    const Backlog backlog_;
    std::atomic<std::uint64_t> dropped_{0};
    mutable std::mutex mutex_;  // guards everything below; taken before a listener's
    std::set<std::shared_ptr<Listener>> listeners_;
    bool isClosed_ = false;
};

}  // namespace ominspect::gateway
