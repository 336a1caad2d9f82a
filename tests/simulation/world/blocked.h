// The threads that wait: for whom a channel wakes, and who wakes up first. They are few, so that looking through all of
// them for a channel is the quickest way, if what is looked at lies close together.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "world/scheduler.h"

namespace sim {

/// In the order in which they began to wait.
class Blocked {
public:
    void Add(Thread& thread, const void* channel, Micros until) {
        thread.waitsAt = waits_.size();
        waits_.push_back({channel, &thread});
        thread.until = until;
        thread.waitNumber = ++lastNumber_;
        ++count_;
        ++BucketOf(channel);
        if (until != kNever) {
            alarms_.push_back(&thread);
            Rise(alarms_.size() - 1);
        }
    }

    void Remove(Thread& thread) {
        --BucketOf(waits_[thread.waitsAt].channel);
        waits_[thread.waitsAt] = {};
        if (thread.until != kNever) {
            RemoveAlarm(thread.alarmAt);
        }
        if (--count_ < waits_.size() / 2) {
            Tidy();
        }
    }

    template <typename Use>
    void ForEachOn(const void* channel, Use use) {
        if (BucketOf(channel) == 0) {
            return;
        }
        // Those that are used leave while others are looked at.
        woken_.clear();
        for (const Entry& each : waits_) {
            if (each.thread != nullptr && each.channel == channel) {
                woken_.push_back(each.thread);
            }
        }
        for (Thread* const thread : woken_) {
            use(*thread);
        }
    }

    template <typename Use>
    void ForEach(Use use) const {
        for (const Entry& each : waits_) {
            if (each.thread != nullptr) {
                use(*each.thread);
            }
        }
    }

    /// The one that is to wake up first, of several the one that has waited longest; null when none is.
    Thread* First() const { return alarms_.empty() ? nullptr : alarms_.front(); }

private:
    struct Entry {
        const void* channel;
        Thread* thread;  // null: it has left
    };

    // How many wait on channels of about this address: mostly nobody waits for what is given back.
    uint32_t& BucketOf(const void* channel) {
        constexpr uintptr_t kGranule = 8;
        return buckets_[reinterpret_cast<uintptr_t>(channel) / kGranule % buckets_.size()];
    }

    static bool IsBefore(const Thread& one, const Thread& other) {
        return one.until != other.until ? one.until < other.until : one.waitNumber < other.waitNumber;
    }

    void Tidy() {
        std::erase_if(waits_, [](const Entry& each) { return each.thread == nullptr; });
        for (size_t i = 0; i < waits_.size(); ++i) {
            waits_[i].thread->waitsAt = i;
        }
    }

    // A heap, in which each thread knows its place.
    void Put(size_t place, Thread& thread) {
        alarms_[place] = &thread;
        thread.alarmAt = place;
    }

    void Rise(size_t place) {
        Thread& thread = *alarms_[place];
        for (; place != 0 && IsBefore(thread, *alarms_[(place - 1) / 2]); place = (place - 1) / 2) {
            Put(place, *alarms_[(place - 1) / 2]);
        }
        Put(place, thread);
    }

    void Sink(size_t place) {
        Thread& thread = *alarms_[place];
        for (;;) {
            size_t child = 2 * place + 1;
            if (child + 1 < alarms_.size() && IsBefore(*alarms_[child + 1], *alarms_[child])) {
                ++child;
            }
            if (child >= alarms_.size() || !IsBefore(*alarms_[child], thread)) {
                break;
            }
            Put(place, *alarms_[child]);
            place = child;
        }
        Put(place, thread);
    }

    void RemoveAlarm(size_t place) {
        Thread& last = *alarms_.back();
        alarms_.pop_back();
        if (place < alarms_.size()) {
            Put(place, last);
            Rise(place);
            Sink(last.alarmAt);
        }
    }

    std::vector<Entry> waits_;
    size_t count_ = 0;
    std::array<uint32_t, 256> buckets_{};
    uint64_t lastNumber_ = 0;
    std::vector<Thread*> alarms_;
    std::vector<Thread*> woken_;
};

}  // namespace sim
