// The thread whose turn it is waits for nothing; all others wait on a condition variable of their own.
#include "fake/scheduler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "fake/process.h"

namespace kivo::fake {

namespace {

// The owner of the test may be blocked without a limit for this long (ms) before it counts as stuck.
constexpr uint64_t kStuckAfter = 10'000'000'000;

thread_local Thread* self = nullptr;

}  // namespace

Lock Hold() {
    static std::mutex& mutex = *new std::mutex;  // outlives static objects that use the platform
    return Lock(mutex);
}

void Die(const std::string& text) {
    (void)std::fprintf(stderr, "fake platform: %s\n", text.c_str());
    (void)std::fflush(stderr);
    std::abort();
}

Scheduler& Scheduler::Get() {
    static Scheduler& scheduler = *new Scheduler;
    return scheduler;
}

Thread* Scheduler::Self() {
    return self;
}

void Scheduler::Adopt(Process& process) {
    if (self != nullptr && !IsOwner(self)) {
        Die("Reset is for the test's own thread");
    }
    if (!threads_.empty()) {
        Die("threads of an earlier test are alive at Reset (see Finish):" + Blocked());
    }
    if (self == nullptr) {
        owner_ = std::make_unique<Thread>();
        self = owner_.get();
    }
    owner_->process = &process;
    owner_->task.clear();
    current_ = owner_.get();
}

uint32_t Scheduler::Spawn(Process& process, std::string task, bool counted, const pthread_attr_t* attributes,
                          std::function<void()> run) {
    if (current_ == nullptr) {
        Die("a thread is created before the first Reset");
    }
    int detachState = PTHREAD_CREATE_JOINABLE;
    if (attributes != nullptr) {
        pthread_attr_getdetachstate(attributes, &detachState);
    }
    auto thread = std::make_unique<Thread>();
    thread->process = &process;
    thread->task = std::move(task);
    thread->counted = counted;
    thread->run = std::move(run);
    thread->joinable = detachState == PTHREAD_CREATE_JOINABLE;
    const int error = pthread_create(&thread->id, attributes, Start, thread.get());
    if (error != 0) {
        return static_cast<uint32_t>(error);
    }
    live_ += counted ? 1 : 0;
    ready_.push_back(thread.get());
    threads_.push_back(std::move(thread));
    return 0;
}

void* Scheduler::Start(void* thread) {
    auto& me = *static_cast<Thread*>(thread);
    self = &me;
    {
        Lock lock = Hold();
        me.turn.wait(lock, [&me] { return Get().current_ == &me; });
    }
    me.run();
    me.run = nullptr;
    const Lock lock = Hold();
    Get().End(me);
    return nullptr;
}

void Scheduler::End(Thread& me) {
    if (me.joinable) {
        ended_.push_back(me.id);
    }
    if (me.counted) {
        --live_;
        Wake(LiveChannel());
    }
    self = nullptr;
    std::erase_if(threads_, [&me](const auto& thread) { return thread.get() == &me; });
    GiveTurnToNext();
}

bool Scheduler::Wait(Lock& lock, const char* waitsFor, const void* channel, uint64_t until) {
    if (self == nullptr) {
        Die(std::string("a thread that the fake did not make waits for ") + waitsFor);
    }
    Thread& me = *self;
    me.channel = channel;
    me.until = until;
    me.since = elapsed_;
    me.waitsFor = waitsFor;
    me.timedOut = until <= elapsed_;
    if (me.timedOut) {
        ready_.push_back(&me);
    } else {
        blocked_.push_back(&me);
    }
    PassTurn(lock, me);
    return !me.timedOut;
}

template <typename Condition>
void Scheduler::Unblock(Condition which) {
    std::ranges::copy_if(blocked_, std::back_inserter(ready_), which);
    std::erase_if(blocked_, which);
}

void Scheduler::Wake(const void* channel) {
    Unblock([channel](const Thread* thread) { return thread->channel == channel; });
}

void Scheduler::WakeThreadsOf(const Process& process) {
    Unblock([&process](const Thread* thread) { return thread->process == &process; });
}

void Scheduler::Settle(Lock& lock) {
    if (self == nullptr) {
        Die("Settle is for threads that take turns");
    }
    settling_.push_back(self);
    PassTurn(lock, *self);
}

void Scheduler::PassTurn(Lock& lock, Thread& me) {
    GiveTurnToNext();
    me.turn.wait(lock, [this, &me] { return current_ == &me; });
    Reap(lock);
}

void Scheduler::GiveTurnToNext() {
    if (ready_.empty() && settling_.empty()) {
        Jump();
    }
    auto& queue = ready_.empty() ? settling_ : ready_;
    current_ = queue.front();
    queue.pop_front();
    current_->turn.notify_one();
}

// Nobody can run: the clock jumps to the next wake-up, and all that are due then become ready.
void Scheduler::Jump() {
    uint64_t next = kNever;
    for (const Thread* thread : blocked_) {
        next = std::min(next, thread->until);
    }
    if (next == kNever) {
        Die("deadlock: every thread waits for ever:" + Blocked());
    }
    elapsed_ = next;
    for (Thread* thread : blocked_) {
        thread->timedOut = thread->until == elapsed_;
        if (IsOwner(thread) && thread->until == kNever && elapsed_ - thread->since > kStuckAfter) {
            Die("the test waits for ever while others run:" + Blocked());
        }
    }
    Unblock([](const Thread* thread) { return thread->timedOut; });
}

void Scheduler::Reap(Lock& lock) {
    std::vector<pthread_t> ended;
    ended.swap(ended_);
    if (ended.empty()) {
        return;
    }
    lock.unlock();
    for (const pthread_t thread : ended) {
        pthread_join(thread, nullptr);
    }
    lock.lock();
}

std::string Scheduler::Blocked() const {
    std::string text;
    for (const Thread* thread : blocked_) {
        text += IsOwner(thread) ? "\n  the test" : "\n  a thread";
        text += thread->task.empty() ? "" : " of task " + thread->task;
        text += std::string(" waits for ") + thread->waitsFor;
    }
    return text;
}

void Sleep(Lock& lock, uint64_t ms) {
    if (!CurrentProcess().dead) {
        Scheduler& scheduler = Scheduler::Get();
        scheduler.Wait(lock, "time to pass", nullptr, scheduler.Elapsed() + ms);
    }
}

}  // namespace kivo::fake
