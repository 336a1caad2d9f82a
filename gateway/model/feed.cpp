// An event is told once it is kept, so that what a consumer has seen survives the process. A disk that hangs delays
// events by at most `kPatience`; then the consumers have them before the disk has.
#include "model/feed.h"

#include <algorithm>
#include <utility>

#include <pthread.h>

namespace ominspect::gateway {
namespace {

constexpr std::size_t kMostPosted = 16384;
constexpr std::chrono::milliseconds kPatience{2000};

}  // namespace

Feed::Feed(Keeper* keeper, std::uint64_t firstSeq) : keeper_(keeper), next_(firstSeq) {
    if (keeper_ != nullptr && keeper_->LastSeq() > 0) {
        next_ = keeper_->LastSeq() + 1;
    }
    told_ = next_ - 1;
}

Feed::~Feed() {
    Stop();
}

void Feed::Start() {
    thread_ = std::thread([this] { Run(); });
    (void)pthread_setname_np(thread_.native_handle(), "feed");
}

void Feed::Stop() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Feed::Post(Event event) {
    {
        const std::lock_guard lock(mutex_);
        if (posted_.size() >= kMostPosted) {
            NoteLoss(event.time);
            return;
        }
        AddGap(event.time);
        posted_.push_back(std::move(event));
    }
    changed_.notify_one();
}

void Feed::Lose() {
    const std::lock_guard lock(mutex_);
    NoteLoss(std::chrono::system_clock::now());
}

void Feed::NoteLoss(TimePoint time) {
    ++lost_;
    lostSince_ = lostSince_.value_or(time);
}

void Feed::AddGap(TimePoint end) {
    if (lostSince_) {
        Event gap;
        gap.kind = EventKind::kGap;
        gap.begin = lostSince_;
        gap.time = end;
        gap.text = "more events than the gateway could take";
        gap.isLoss = true;
        posted_.push_back(std::move(gap));
        lostSince_.reset();
    }
}

void Feed::Wake() {
    {
        const std::lock_guard lock(mutex_);
        isWoken_ = true;
    }
    changed_.notify_one();
}

void Feed::Run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isEnding_ || isWoken_ || !posted_.empty(); });
        if (isEnding_ && posted_.empty()) {
            return;
        }
        isWoken_ = false;
        ++rounds_;
        AddGap(std::chrono::system_clock::now());
        std::deque<Event> events;
        events.swap(posted_);
        lock.unlock();
        Tell(events);
        lock.lock();
    }
}

void Feed::Tell(std::deque<Event>& events) {
    if (keeper_ != nullptr) {
        next_ = std::max(next_, keeper_->LastSeq() + 1);
    }
    bool isKept = false;
    for (Event& event : events) {
        if (StoredKind(event.kind)) {
            event.seq = next_++;
            if (keeper_ != nullptr) {
                keeper_->Keep(event);
                isKept = true;
            }
        }
    }
    if (isKept) {
        keeper_->Settle(kPatience);
    }
    for (const Event& event : events) {
        if (event.seq > 0) {
            told_ = event.seq;
        }
        for (const Consumer& consumer : consumers_) {
            consumer(event);
        }
    }
}

}  // namespace ominspect::gateway
