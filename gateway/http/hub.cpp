// A frame is made once and shared by all queues.
#include "http/hub.h"

#include <algorithm>

#include "http/document.h"

namespace ominspect::gateway {
namespace {

constexpr std::size_t kMostListeners = 500;
constexpr std::size_t kMostFrames = 512;
constexpr std::size_t kMostBytes = 512UL * 1024UL;
// Rows of the history that a listener is given again; one that missed more asks for the state instead.
constexpr std::size_t kMostBacklog = 400;

using Frame = std::shared_ptr<const std::string>;

Frame MakeFrame(std::string text) {
    return std::make_shared<const std::string>(std::move(text));
}

}  // namespace

std::string FrameOf(const Event& event) {
    std::string frame = event.seq > 0 ? "id: " + std::to_string(event.seq) + "\n" : "";
    return frame + "event: " + WordOf(event.kind) + "\ndata: " + EventJson(event) + "\n\n";
}

Listener::Taken Listener::Take(char* bytes, std::size_t size, std::size_t& count) {
    const std::lock_guard lock(mutex_);
    count = 0;
    while (!frames_.empty() && count < size) {
        const std::string& frame = *frames_.front();
        const std::size_t part = std::min(size - count, frame.size() - offset_);
        std::copy_n(frame.data() + offset_, part, bytes + count);
        count += part;
        offset_ += part;
        if (offset_ == frame.size()) {
            bytes_ -= frame.size();
            offset_ = 0;
            frames_.pop_front();
        }
    }
    if (count > 0) {
        return Taken::kSome;
    }
    isAsleep_ = !isEnding_;
    return isEnding_ ? Taken::kEnd : Taken::kNothingYet;
}

// The caller holds the listener's lock, so that the connection is not resumed before it was suspended: Take's caller
// suspends it under the daemon's own lock.
void Hub::Wake(Listener& listener) {
    if (listener.isAsleep_) {
        listener.isAsleep_ = false;
        listener.wake_();
    }
}

std::optional<std::deque<Hub::Frame>> Hub::Missed(std::uint64_t after, std::uint64_t until) const {
    std::deque<Frame> frames;
    if (after == until) {
        return frames;
    }
    const auto rows = after < until ? backlog_(after, kMostBacklog + 1) : std::nullopt;
    if (!rows || rows->empty() || rows->size() > kMostBacklog || rows->front().seq != after + 1) {
        return std::nullopt;
    }
    for (const history::Row& row : *rows) {
        if (row.seq <= until) {
            frames.push_back(MakeFrame(FrameOf(EventOf(row))));
        }
    }
    return frames;
}

// It is among the listeners before the history is read, which may wait for its disk: what is told meanwhile waits
// behind what comes from there.
std::shared_ptr<Listener> Hub::Add(std::optional<std::uint64_t> after, Listener::Wake wake) {
    auto listener = std::make_shared<Listener>();
    listener->wake_ = std::move(wake);
    std::uint64_t told = 0;
    {
        const std::lock_guard lock(mutex_);
        if (isClosed_ || listeners_.size() >= kMostListeners) {
            return nullptr;
        }
        told = told_;
        listeners_.insert(listener);
    }
    try {
        auto first = after ? Missed(*after, told) : std::deque<Frame>();
        std::string hello = "retry: 2000\n";
        if (!first) {
            first.emplace();
            hello += "\nevent: reset\ndata: {\"reason\":\"not all that was missed is known\"}\n\n";
        }
        hello += "id: " + std::to_string(told) + "\nevent: hello\ndata: {\"seq\":" + std::to_string(told) + "}\n\n";
        first->push_back(MakeFrame(std::move(hello)));
        const std::lock_guard own(listener->mutex_);
        for (const Frame& frame : *first) {
            listener->bytes_ += frame->size();
        }
        listener->frames_.insert(listener->frames_.begin(), first->begin(), first->end());
    } catch (...) {
        Remove(listener);
        throw;
    }
    return listener;
}

void Hub::Remove(const std::shared_ptr<Listener>& listener) {
    const std::lock_guard lock(mutex_);
    listeners_.erase(listener);
}

void Hub::Put(const std::shared_ptr<Listener>& listener, const Frame& frame) {
    const std::lock_guard lock(listener->mutex_);
    if (listener->isEnding_) {
        return;
    }
    // Who has taken everything is not slow, however long the frame is.
    const bool isBehind = !listener->frames_.empty();
    if (isBehind && (listener->frames_.size() >= kMostFrames || listener->bytes_ + frame->size() > kMostBytes)) {
        // A frame of which the listener has taken a part must go out whole.
        const Frame first = listener->frames_.front();
        listener->frames_.clear();
        listener->bytes_ = 0;
        if (listener->offset_ > 0) {
            listener->frames_.push_back(first);
            listener->bytes_ = first->size();
        }
        const Frame last = MakeFrame("event: dropped\ndata: {\"reason\":\"too slow\"}\n\n");
        listener->frames_.push_back(last);
        listener->bytes_ += last->size();
        listener->isEnding_ = true;
        ++dropped_;
    } else {
        listener->frames_.push_back(frame);
        listener->bytes_ += frame->size();
    }
    Wake(*listener);
}

void Hub::Tell(const Event& event) {
    const std::lock_guard lock(mutex_);
    if (event.seq > 0) {
        told_ = event.seq;
    }
    if (listeners_.empty()) {
        return;
    }
    const Frame frame = MakeFrame(FrameOf(event));
    for (const auto& listener : listeners_) {
        Put(listener, frame);
    }
}

void Hub::Tick() {
    static const Frame kFrame = MakeFrame(":\n\n");
    const std::lock_guard lock(mutex_);
    for (const auto& listener : listeners_) {
        Put(listener, kFrame);
    }
}

void Hub::Close() {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    for (const auto& listener : listeners_) {
        const std::lock_guard own(listener->mutex_);
        listener->isEnding_ = true;
        Wake(*listener);
    }
}

std::size_t Hub::Count() const {
    const std::lock_guard lock(mutex_);
    return listeners_.size();
}

}  // namespace ominspect::gateway
