// The process on the bus: one per address space.
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
#include "msg/handles.h"
#include "msg/peers.h"
#include "msg/reader.h"
#include "msg/task.h"

namespace kivo::msg {

// A reply that a handler of this process owes.
struct OwedReply {
    MessagePtr reply;       // addressed, and still empty
    bool deferred = false;  // kept beyond its handler
};

// Events of one task of another process.
struct EventSource {
    SlotPtr match;
    std::vector<std::pair<uint32_t, std::shared_ptr<Task>>> subscribers;  // event id, receiver
};

enum class Standing {
    kOff,        // not on the bus
    kAttaching,  // on the way
    kAttached,
    kStopping,  // asked to leave: nothing is waited for any more
    kLost,      // the bus went away
};

// `lock` guards everything here, and the sd-bus objects with their unlocked counts of references.
struct Process {
    Process();

    std::mutex lock;
    std::condition_variable changed;  // standing, ended tasks, threads inside
    Standing standing = Standing::kOff;
    std::string name;
    BusPtr bus;
    Reader reader;
    Peers peers;
    std::map<std::string, std::shared_ptr<Task>> tasks;
    std::unordered_map<uint64_t, OwedReply> owed;  // by the token in the envelope
    uint64_t lastToken = 0;
    size_t deferredCount = 0;
    std::map<std::pair<std::string, std::string>, EventSource> events;          // by process and task name
    std::map<std::string, std::vector<std::shared_ptr<Task>>> restartWatchers;  // by process name
    uint64_t session = 0;    // counts the times that the process has left the bus
    bool detaching = false;  // a thread is at work in OsProcDetach
    size_t inside = 0;       // threads in a message loop or a synchronous send: detaching waits for them

    // The code for a call that cannot be made now; OS_MSG_OK when it can.
    [[nodiscard]] uint32_t Unusable() const;
    [[nodiscard]] std::shared_ptr<Task> FindTask(const std::string& taskName) const;
    void ForgetOwed(const std::string& connection);

    // After a send: what the socket did not take must be written by whoever reads.
    void KickIfUnsent();
};

// Never destroyed: threads may use it until the process is gone.
Process& TheProcess();

// The task whose thread this is; empty on other threads.
std::string& CurrentTaskName();

// Marks the calling thread, while it lives, as one that runs a task or its message loop.
class Borrowed {
public:
    Borrowed() { ++Depth(); }
    ~Borrowed() { --Depth(); }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;
    Borrowed(Borrowed&&) = delete;
    Borrowed& operator=(Borrowed&&) = delete;

    // Whether the calling thread is such a one.
    static bool Here() { return Depth() > 0; }

private:
    static int& Depth();
};

// Counts the calling thread among those inside while it lives; wants the lock at both ends.
class Inside {
public:
    explicit Inside(Process& process) : process_(process) { ++process_.inside; }
    ~Inside() {
        --process_.inside;
        process_.changed.notify_all();
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    Inside(Inside&&) = delete;
    Inside& operator=(Inside&&) = delete;

private:
    Process& process_;
};

// Runs one function of the interface: nothing is thrown across it.
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
