// The simulated processes and their tasks: the test's own one, and those that StartProcess made.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fake/fake.h"
#include "fake/scheduler.h"
#include "kivo/os_msg.h"

namespace kivo::fake {

struct Process;

/// A synchronous send that waits; its own address is the channel on which its sender waits.
struct Request {
    const Process* from{};
    const Process* to{};
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
};

/// A task; its own address is the channel on which its loop waits for messages.
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

/// A reply that a process owes.
struct OwedReply {
    std::shared_ptr<Request> request;
    bool deferred{};
};

/// A process; its own address is the channel on which OsTaskRun and OsProcDetach wait for its tasks.
struct Process {
    enum class State { kOff, kOn, kLeaving };

    std::string name;
    State state = State::kOff;
    bool dead{};  // killed: its threads run on to their ends, and the bus is gone for them
    std::vector<std::shared_ptr<Task>> tasks;
    std::vector<OsMsgSubscription> subscriptions;
    std::map<uint64_t, OwedReply> owed;  // by token
    void (*log)(const char*){};
    uint32_t logLevel = 2;

    bool Attached() const { return state == State::kOn; }
    std::shared_ptr<Task> FindTask(const std::string& taskName) const;
};

/// The process that the calling thread belongs to; the test's own for threads that the fake did not make.
Process& CurrentProcess();
Process& TestProcess();

/// The process that is on the bus under that name, or null.
Process* FindProcess(const std::string& name);

/// Every process, on the bus or not.
std::vector<Process*> AllProcesses();

/// True when the calling process may use the bus: it is on it, or it need not be (see RequireAttach).
bool MayUseBus(const Process& process);

/// True when unit tests may use the bus freely: RequireAttach was not called.
bool IsLenient(const Process& process);

/// Puts the process on the bus and tells those who subscribed to its restart.
void JoinBus(Lock& lock, Process& process, const std::string& name);

/// Makes the process's message loops and waiting calls return. They may go on for a while.
void RequestLeave(Process& process);

/// Takes the process off the bus: its queues are emptied, and senders that wait for it learn that it died.
void LeaveBus(Process& process);

/// Synchronous sends that wait.
void AddRequest(const std::shared_ptr<Request>& request);
void RemoveRequest(const std::shared_ptr<Request>& request);

}  // namespace kivo::fake
