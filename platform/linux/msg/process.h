// The state of this process on the bus.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kivo/os_msg.h"
#include "msg/awaited_reply.h"
#include "msg/daemon.h"
#include "msg/handles.h"
#include "msg/peers.h"
#include "msg/reader.h"
#include "msg/subscribers.h"
#include "msg/task.h"
#include "msg/unsent.h"

namespace kivo::msg {

// A reply that a handler of this process owes.
struct OwedReply {
    MessagePtr reply;       // addressed; its payload is still missing
    bool deferred = false;  // kept after its handler has returned
};

// Events of one task of another process.
struct EventSource {
    bool matched = false;  // the daemon passes them on
    bool asked = false;    // the process knows that this one wants its events
    std::vector<std::pair<uint32_t, std::shared_ptr<Task>>> subscribers;  // event id, receiver
};

// Where the process stands with the bus.
enum class BusState {
    kOff,        // not on the bus
    kAttaching,  // joining it
    kAttached,
    kStopping,  // asked to leave: calls that wait return
    kLost,      // the bus went away
};

// `lock` guards everything here, and the sd-bus objects with their unlocked counts of references.
struct Process {
    Process();

    std::mutex lock;
    std::condition_variable changed;  // state, ended tasks, active calls
    BusState state = BusState::kOff;
    std::string name;
    std::string version;  // empty: it shows none
    BusPtr bus;
    Unsent unsent;
    Reader reader;
    Daemon daemon{unsent};
    Peers peers{daemon};
    SlotPtr dispatch;
    std::unordered_map<uint64_t, AwaitedReply*> awaited;  // by the cookie of the call
    std::map<std::string, std::shared_ptr<Task>> tasks;
    std::unordered_map<uint64_t, OwedReply> owed;  // by the token in the envelope
    uint64_t lastToken = 0;
    size_t deferredCount = 0;
    std::map<std::pair<std::string, std::string>, EventSource> events;          // by process and task name
    std::map<std::string, std::vector<std::shared_ptr<Task>>> restartWatchers;  // by process name
    Subscribers subscribers;
    uint64_t session = 0;    // counts the times that the process has left the bus
    bool detaching = false;  // a thread is at work in OsProcDetach
    size_t activeCalls = 0;  // message loops and synchronous sends: detaching waits for their end

    // Why the bus cannot be used now, OS_MSG_OK when it can.
    [[nodiscard]] uint32_t CheckUsable() const;
    [[nodiscard]] std::shared_ptr<Task> FindTask(const std::string& taskName) const;
    void ForgetOwed(const std::string& connection);

    // To be called after a send: the thread that reads also writes what the socket did not take at once.
    void KickIfUnsent();
};

// From now on every message that comes in is first seen here. A negative errno on failure.
int StartDispatch(Process& process);

// Shows the version of this process, if it has one. A negative errno on failure.
int PublishVersion(Process& process);

// Gives an event to the tasks that subscribed to it; one that finds no memory for it counts it as lost. Throws
// std::bad_alloc before any task has been given it.
void DeliverEvent(Process& process, sd_bus_message* signal);

// Asks a process that has just appeared for its events, if a task has subscribed to some.
void SubscribeAgain(Process& process, const std::string& procName);

// Never destroyed: threads may use it until the process is gone.
Process& TheProcess();

// Counts a call that waits, while the object lives. Made and destroyed under the lock.
class ActiveCall {
public:
    explicit ActiveCall(Process& process) : process_(process) { ++process_.activeCalls; }
    ~ActiveCall() {
        // Who detaches looks at the count once it has marked that; on every call this would wake the threads that wait
        // for something else.
        if (--process_.activeCalls == 0 && process_.detaching) {
            process_.changed.notify_all();
        }
    }
    ActiveCall(const ActiveCall&) = delete;
    ActiveCall& operator=(const ActiveCall&) = delete;
    ActiveCall(ActiveCall&&) = delete;
    ActiveCall& operator=(ActiveCall&&) = delete;

private:
    Process& process_;
};

// Runs one function of the interface, which must not throw.
template <typename Function>
uint32_t Guarded(Function&& function) noexcept {
    try {
        return std::forward<Function>(function)();
    } catch (...) {
        return OS_MSG_ERR_NO_MEMORY;
    }
}

// What a negative errno of an sd-bus call means here.
uint32_t ResultOf(int negativeErrno);

}  // namespace kivo::msg
