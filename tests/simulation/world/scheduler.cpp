// Turns are taken by whoever is picked of those that can run.
#include "world/scheduler.h"

#include <algorithm>
#include <map>
#include <utility>

#include "world/blocked.h"
#include "world/choices.h"
#include "world/journal.h"
#include "world/observer.h"
#include "world/outcome.h"
#include "world/process.h"

namespace sim {

namespace {

struct State {
    std::vector<std::unique_ptr<Thread>> threads;
    std::vector<Thread*> ready;
    Blocked blocked;
    std::multimap<Micros, std::function<void()>> events;
    uint64_t lastThread{};
    uint64_t lastEnded{};  // by itself
    uint32_t preemption{};
    uint32_t untilPreemption{};  // 0: never
};

// Known before the first allocation, which asks for them.
constinit Thread* g_current = nullptr;
constinit Micros g_now = 0;

State& The() {
    static State& state = *new State;
    return state;
}

void Body(void* thread) {
    auto& me = *static_cast<Thread*>(thread);
    --me.inPlatform;
    me.body();
    ++me.inPlatform;
    if (!me.locks.empty()) {
        Violation("the thread ends with a lock held");
    }
    TellThreadEnd(me);
    me.body = nullptr;
    me.state = Thread::State::kEnded;
    Wake(me.process);
    me.fiber.Leave();
}

void DrawPreemption() {
    State& state = The();
    state.untilPreemption = state.preemption == 0 ? 0 : 2 * state.preemption - Pick(2 * state.preemption);
}

void GiveUpTurn() {
    Thread& me = *g_current;
    me.state = Thread::State::kReady;
    The().ready.push_back(&me);
    me.fiber.Leave();
}

void MakeReady(Thread& thread) {
    thread.state = Thread::State::kReady;
    The().ready.push_back(&thread);
}

void Unblock(Thread& thread, bool timedOut) {
    The().blocked.Remove(thread);
    thread.timedOut = timedOut;
    MakeReady(thread);
}

Micros Earliest() {
    const Thread* const first = The().blocked.First();
    return first == nullptr ? kNever : first->until;
}

void TimeOut() {
    while (Earliest() <= g_now) {
        Unblock(*The().blocked.First(), true);
    }
}

void Happen() {
    State& state = The();
    while (!state.events.empty() && state.events.begin()->first <= g_now) {
        const auto happen = std::move(state.events.begin()->second);
        state.events.erase(state.events.begin());
        happen();
    }
}

std::string ShowBlocked() {
    std::string text;
    The().blocked.ForEach(
        [&text](const Thread& thread) { text += "; " + thread.Label() + " waits for " + thread.waitsFor; });
    return text;
}

// Nobody can run: the clock goes on to the next wake-up. What happens at the very same time may come first or last.
void Jump() {
    State& state = The();
    const Micros event = state.events.empty() ? kNever : state.events.begin()->first;
    const Micros wakeUp = Earliest();
    const Micros next = std::min(wakeUp, event);
    if (next == kNever) {
        Violation("deadlock: every thread waits for ever" + ShowBlocked());
    }
    g_now = next;
    const bool both = wakeUp == event;
    if (both && OneIn(2)) {
        TimeOut();
        Happen();
        return;
    }
    if (event == next) {
        Happen();
    }
    TimeOut();
}

void RunOne() {
    State& state = The();
    const size_t which = Pick(static_cast<uint32_t>(state.ready.size()));
    Thread& thread = *state.ready[which];
    state.ready.erase(state.ready.begin() + static_cast<std::ptrdiff_t>(which));
    g_current = &thread;
    thread.state = Thread::State::kRunning;
    ++TheOutcome().steps;
    thread.fiber.Enter();
    g_current = nullptr;
    if (thread.state == Thread::State::kEnded) {
        state.lastEnded = thread.number;
        std::erase_if(state.threads, [&thread](const auto& each) { return each.get() == &thread; });
    }
}

}  // namespace

std::string Thread::Label() const {
    return process->Label() + "/" + name + "#" + std::to_string(number);
}

Thread* Self() {
    return g_current;
}

Micros Now() {
    return g_now;
}

Thread& Spawn(Process& process, std::string name, std::function<void()> body) {
    State& state = The();
    auto thread = std::make_unique<Thread>();
    thread->number = ++state.lastThread;
    thread->process = &process;
    thread->name = std::move(name);
    thread->body = std::move(body);
    thread->inPlatform = 1;
    thread->fiber.Prepare(Body, thread.get());
    state.ready.push_back(thread.get());
    state.threads.push_back(std::move(thread));
    return *state.threads.back();
}

bool Wait(const char* waitsFor, const void* channel, Micros until) {
    Thread& me = *g_current;
    me.waitsFor = waitsFor;
    me.timedOut = until <= g_now;
    if (me.timedOut) {
        MakeReady(me);
    } else {
        me.state = Thread::State::kBlocked;
        The().blocked.Add(me, channel, until);
    }
    me.fiber.Leave();
    return !me.timedOut;
}

void Wake(const void* channel) {
    The().blocked.ForEachOn(channel, [](Thread& thread) { Unblock(thread, false); });
}

void At(Micros when, std::function<void()> happen) {
    The().events.emplace(std::max(when, g_now), std::move(happen));
}

void Point() {
    State& state = The();
    if (g_current == nullptr) {
        return;
    }
    Process& process = *g_current->process;
    if (process.killIn != 0 && --process.killIn == 0) {
        KillProcess(process);
    }
    if (state.untilPreemption != 0 && --state.untilPreemption == 0) {
        DrawPreemption();
        GiveUpTurn();
    }
}

void SetPreemption(uint32_t calls) {
    The().preemption = calls;
    DrawPreemption();
}

void EndThreads(const Process& process) {
    State& state = The();
    const auto isOfProcess = [&process](const Thread* thread) { return thread->process == &process; };
    std::erase_if(state.ready, isOfProcess);
    for (const auto& thread : state.threads) {
        if (thread->state == Thread::State::kBlocked && isOfProcess(thread.get())) {
            state.blocked.Remove(*thread);
        }
    }
    Thread* const me = g_current;
    std::erase_if(state.threads, [&](const auto& thread) { return thread.get() != me && isOfProcess(thread.get()); });
    if (me != nullptr && isOfProcess(me)) {
        me->state = Thread::State::kEnded;
        me->fiber.Leave();
    }
}

bool IsThread(uint64_t number) {
    return std::ranges::any_of(The().threads, [number](const auto& thread) {
        return thread->number == number && thread->state != Thread::State::kEnded;
    });
}

void ForEachThread(const std::function<void(Thread&)>& use) {
    for (const auto& thread : The().threads) {
        use(*thread);
    }
}

void RunUntilEnd(const Thread& director) {
    State& state = The();
    const uint64_t number = director.number;
    while (state.lastEnded != number) {
        if (state.ready.empty()) {
            Jump();
        } else {
            RunOne();
        }
    }
}

InPlatform::InPlatform() {
    if (Thread* const me = Self()) {
        ++me->inPlatform;
    }
}

InPlatform::~InPlatform() {
    if (Thread* const me = Self()) {
        --me->inPlatform;
    }
}

InProcess::InProcess() {
    if (Thread* const me = Self()) {
        depth_ = std::exchange(me->inPlatform, 0U);
    }
}

InProcess::~InProcess() {
    if (Thread* const me = Self()) {
        me->inPlatform = depth_;
    }
}

}  // namespace sim
