// The simulated processes: what each has on the bus, and what the platform's other libraries keep for it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kivo/os_msg.h"
#include "kivo/os_timer.h"
#include "world/outcome.h"
#include "world/scheduler.h"

namespace sim {

using Bytes = std::vector<unsigned char>;
using BytesView = std::span<const unsigned char>;

struct Process;

/// A synchronous send that waits; its own address is the channel on which its sender waits.
struct Request {
    Process* from{};
    Process* to{};  // null until it has arrived
    std::string fromName;
    std::string toName;
    Micros deadline{};
    bool decided{};  // the answer is on its way
    bool isHeld{};   // it is held up, and is lost with the process that gave it
    uint64_t answers{};
    bool done{};
    bool senderLeft{};
    uint32_t result = OS_MSG_OK;
    Bytes reply;
};

/// A message in a task's queue.
struct Delivery {
    TagMsgBlock envelope{};
    Bytes data;
    std::shared_ptr<Request> request;  // null: asynchronous
    uint64_t event{};                  // the number of an event that a session is to be told of
    uint64_t sender{};                 // its connection; 0: the bus itself
};

/// A task; its own address is the channel on which its loop waits.
struct Task {
    std::string name;
    uint32_t queueDepth{};
    OsTaskHandler handler{};
    OsTaskEntry entry{};
    std::deque<Delivery> queue;
    uint64_t dropped{};
    bool looping{};
    bool ended{};
};

struct OwedReply {
    std::shared_ptr<Request> request;
    bool deferred{};
};

/// Its own address is the channel on which a thread waits that is to start on time.
struct Timer {
    OsTimerParam param{};
    Micros due{};
    bool deleted{};
};

/// An item as the engine client shows it.
struct ShownItem {
    std::string name;
    uint32_t timeout{};
    std::string server;
};

/// An event that its event function is still to be told of.
struct Untold {
    uint64_t number{};
    uint32_t id{};
    std::string told;
};

class Observer;

/// A process; its own address is the channel on which others wait for its tasks and for its end.
struct Process {
    enum class State { kOff, kOn, kLeaving };

    uint32_t number{};  // in the order in which they began
    std::string kind;
    bool dead{};
    bool busLost{};
    Fault killedBy{};
    uint64_t killIn{};  // platform calls until it is killed; 0: never
    Observer* observer{};
    std::function<void()> onEnd;  // called once, when it has ended in any way

    // On the bus:
    std::string name;
    State state = State::kOff;
    std::vector<std::shared_ptr<Task>> tasks;
    std::vector<OsMsgSubscription> subscriptions;
    std::map<uint64_t, OwedReply> owed;  // by token
    std::vector<ShownItem> items;
    std::deque<Untold> untold;
    uint32_t joins{};      // how often it has joined
    Micros lastArrival{};  // of what it has sent

    // Memory:
    int64_t blocks{};
    uint64_t failAllocationIn{};  // allocations until one fails; 0: never
    int64_t answers{};            // that it got and did not free
    int64_t accounted{};          // blocks of OsMemMallocSetCharMon
    bool ranOutOfMemory{};

    // Of the other libraries:
    bool timersStarted{};
    std::map<OsTimerId, std::shared_ptr<Timer>> timers;
    OsTimerId lastTimer{};
    bool logging{};
    std::map<std::string, uint16_t> logs;
    uint16_t lastLog{};
    std::string monitored;
    Micros lastSign{};
    uint64_t lastHandle{};  // of a thread

    bool Attached() const { return state == State::kOn; }
    uint64_t Connection() const { return uint64_t{number} << 32U | joins; }
    std::shared_ptr<Task> FindTask(const std::string& taskName) const;
    std::string Label() const { return kind + std::to_string(number); }
};

/// Starts a process whose first thread runs `main`. It ends when that returns.
Process& StartProcess(const std::string& kind, std::function<void()> main);

/// It is gone at once, as after SIGKILL. Does not return if the calling thread is one of its.
void KillProcess(Process& process);

Process& CurrentProcess();
Process* FindProcess(const std::string& name);
void ForEachProcess(const std::function<void(Process&)>& use);

}  // namespace sim
