// Turn taking and virtual time: exactly one thread runs, until it waits in a platform call or is made to give up its
// turn there. All times are microseconds since the run began.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "world/fiber.h"

namespace sim {

struct Process;

using Micros = uint64_t;
constexpr Micros kNever = std::numeric_limits<Micros>::max();
constexpr Micros kMilli = 1000;
constexpr Micros kSecond = 1000000;

/// A thread of a simulated process.
struct Thread {
    enum class State { kReady, kRunning, kBlocked, kEnded };

    uint64_t number{};  // in the order in which they began
    Process* process{};
    std::string name;
    std::string task;  // the platform task it runs, or empty
    std::function<void()> body;
    Fiber fiber;
    State state = State::kReady;
    unsigned inPlatform{};           // how deep it is within the simulator's own code
    std::vector<const void*> locks;  // what it holds, in the order in which it was taken

    Micros lastArrival{};  // of what it has sent

    void* script{};  // of its process's observer

    // While blocked:
    Micros until{};
    uint64_t waitNumber{};
    size_t waitsAt{};  // its places in the scheduler's lists
    size_t alarmAt{};
    bool timedOut{};
    const char* waitsFor = "";

    std::string Label() const;
};

/// The thread whose turn it is; null in the scheduler itself.
Thread* Self();
Micros Now();

Thread& Spawn(Process& process, std::string name, std::function<void()> body);

/// Blocks the calling thread until Wake(channel), or until the given time: false then.
bool Wait(const char* waitsFor, const void* channel, Micros until = kNever);
void Wake(const void* channel);

/// Waits until `done` holds; false when the time came first.
template <typename Condition>
bool WaitFor(const char* waitsFor, const void* channel, Micros until, Condition done) {
    while (!done()) {
        if (!Wait(waitsFor, channel, until)) {
            return done();
        }
    }
    return true;
}

/// Calls `happen` at that time, outside of any thread.
void At(Micros when, std::function<void()> happen);

/// A platform call begins: the thread may lose its turn here, or its process may be killed.
void Point();

/// How many calls lie between two losses of the turn, on average; 0: none.
void SetPreemption(uint32_t calls);

/// The threads of a process run no more. Does not return if the calling thread is one of them.
void EndThreads(const Process& process);

/// Whether the thread of that number has not ended. Its end wakes those who wait on its process.
bool IsThread(uint64_t number);
void ForEachThread(const std::function<void(Thread&)>& use);

/// Runs everything until the given thread has ended.
void RunUntilEnd(const Thread& director);

/// The simulator's own code on a thread of a simulated process: its memory is not the process's.
class InPlatform {
public:
    InPlatform();
    ~InPlatform();
    InPlatform(const InPlatform&) = delete;
    InPlatform& operator=(const InPlatform&) = delete;
};

/// The way back: code of the simulated process that the platform calls.
class InProcess {
public:
    InProcess();
    ~InProcess();
    InProcess(const InProcess&) = delete;
    InProcess& operator=(const InProcess&) = delete;

private:
    unsigned depth_{};
};

}  // namespace sim
