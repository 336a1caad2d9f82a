// A caller that waits for an event to be kept waits for one short transaction only: old rows are deleted, and the log
// is written back, when no event is to be written.
#include "history/writer.h"

#include <ctime>
#include <iterator>
#include <utility>

#include <pthread.h>

namespace ominspect::gateway {
namespace {

constexpr const char* kPart = "history";
constexpr std::size_t kMostTaken = 8192;
// What a clock is corrected by in a long life is less.
constexpr std::chrono::hours kMostDrift{1};

// Since the system's start, its sleep included; nobody sets it.
std::chrono::nanoseconds Uptime() {
    timespec now{};
    (void)clock_gettime(CLOCK_BOOTTIME, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace

Writer::Writer(Settings settings, Parts& parts, std::function<void(Event)> gap)
    : settings_(std::move(settings)), parts_(parts), gap_(std::move(gap)), bootTime_(settings_.clock() - Uptime()) {
    TryToOpen();
}

Writer::~Writer() {
    Stop();
}

void Writer::Start() {
    if (store_) {
        EndGap();
    }
    thread_ = std::thread([this] { Run(); });
    (void)pthread_setname_np(thread_.native_handle(), "history");
}

void Writer::Stop() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

std::uint64_t Writer::LastSeq() {
    return lastSeq_;
}

void Writer::Keep(const Event& event) {
    bool isFirstDropped = false;
    {
        const std::lock_guard lock(mutex_);
        if (taken_.size() < kMostTaken) {
            taken_.push_back(event);
        } else {
            ++lost_;
            isFirstDropped = !droppedSince_;
            droppedSince_ = droppedSince_.value_or(event.time);
        }
    }
    changed_.notify_one();
    if (isFirstDropped && parts_.All()[kPart].state == PartState::kOk) {
        parts_.Set(kPart, PartState::kDegraded, settings_.path + ": the disk is too slow; results are not kept");
    }
}

void Writer::Settle(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    settled_.wait_for(lock, limit, [this] { return taken_.empty() && !isWriting_; });
}

void Writer::TryToOpen() {
    const auto now = std::chrono::system_clock::now();
    auto store = Store::Open(settings_.path, settings_.bus, wasSetAside_);
    if (!store) {
        Fail(store.Failure(), 0);
        return;
    }
    store_ = std::move(*store);
    lastSeq_ = store_->LastSeq();
    bytes_ = store_->Bytes();
    const auto watched = store_->WatchedUntil();
    if (watched && !gapBegin_) {
        gapBegin_ = std::min(*watched, now);
        gapText_ = "the gateway did not run";
    }
}

void Writer::Run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        const auto period = store_ && !gapBegin_ ? settings_.signPeriod : settings_.retryPeriod;
        (void)changed_.wait_for(lock, period, [this] { return isEnding_ || !taken_.empty(); });
        const bool isEnding = isEnding_;
        std::vector<Event> events(std::make_move_iterator(taken_.begin()), std::make_move_iterator(taken_.end()));
        taken_.clear();
        if (const auto dropped = std::exchange(droppedSince_, std::nullopt); dropped && !gapBegin_) {
            gapBegin_ = dropped;
            gapText_ = "more than the disk could take";
        }
        isWriting_ = true;
        lock.unlock();
        if (!store_ && Clock::now() >= retry_) {
            TryToOpen();
        }
        WriteBatch(events);
        lock.lock();
        isWriting_ = false;
        settled_.notify_all();
        if (isEnding && taken_.empty()) {
            store_.reset();
            return;
        }
        if (taken_.empty() && Clock::now() >= tidy_) {
            lock.unlock();
            Tidy();
            lock.lock();
        }
    }
}

void Writer::WriteBatch(const std::vector<Event>& events) {
    if (!store_) {
        lost_ += events.size();
        return;
    }
    if (const auto error = WriteWithRoom(events)) {
        Fail(*error, events.size());
        return;
    }
    EndGap();
}

std::optional<Error> Writer::WriteWithRoom(const std::vector<Event>& events) {
    const auto now = std::chrono::system_clock::now();
    auto error = store_->Write(events, now);
    for (int tries = 0; error && Store::IsFull(*error) && tries < 4; ++tries) {
        isShort_ = true;
        if (!store_->MakeRoom()) {
            break;
        }
        error = store_->Write(events, now);
    }
    if (!error) {
        lastSeq_ = std::max<std::uint64_t>(lastSeq_, store_->LastSeq());
    }
    return error;
}

void Writer::Fail(const Error& error, std::size_t lost) {
    lost_ += lost;
    if (!gapBegin_) {
        gapBegin_ = std::chrono::system_clock::now();
        gapText_ = "nothing could be kept: " + error.text;
    }
    retry_ = Clock::now() + settings_.retryPeriod;
    parts_.Set(kPart, PartState::kFailed, settings_.path + ": " + error.text + "; results are not kept");
    if (!Store::IsFull(error)) {
        store_.reset();  // a new connection may be free of the fault
    }
}

void Writer::EndGap() {
    if (isShort_) {
        parts_.Set(kPart, PartState::kDegraded,
                   settings_.path + ": the disk is full; the oldest results go, so that new ones are kept");
    } else if (wasSetAside_) {
        parts_.Set(kPart, PartState::kDegraded,
                   "the history was damaged and is set aside as " + settings_.path + ".damaged; a new one has begun");
    } else {
        parts_.Set(kPart, PartState::kOk);
    }
    if (gapBegin_) {
        Event gap;
        gap.kind = EventKind::kGap;
        gap.begin = std::exchange(gapBegin_, std::nullopt);
        gap.time = std::chrono::system_clock::now();
        gap.text = gapText_;
        gap_(std::move(gap));
    }
}

std::optional<TimePoint> Writer::TrustedTime() const {
    const TimePoint now = settings_.clock();
    const auto drift = (now - Uptime()) - bootTime_;
    return std::chrono::abs(drift) < kMostDrift ? std::optional(now) : std::nullopt;
}

void Writer::Tidy() {
    tidy_ = Clock::now() + settings_.signPeriod;
    if (!store_) {
        return;
    }
    for (int rounds = 0; rounds < 20; ++rounds) {
        const auto more = store_->Retain(settings_.retention, TrustedTime());
        if (!more || !*more) {
            break;
        }
    }
    if (isShort_ && store_->Grow()) {
        isShort_ = false;
        EndGap();
    }
    bytes_ = store_->Bytes();
}

}  // namespace ominspect::gateway
