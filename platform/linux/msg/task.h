// A task: its queue, and the object on the bus that fills it.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "kivo/os_msg.h"
#include "msg/handles.h"
#include "msg/peers.h"
#include "msg/queue.h"
#include "msg/waiter.h"

namespace kivo::msg {

// Used under the process's lock, as everything that holds bus handles.
class Task {
public:
    // `descriptor` was checked before.
    Task(const OsTaskDescriptor& descriptor, std::string name, Peers& peers);

    // Puts the task's object on the bus. A negative errno on failure.
    int Publish(sd_bus* bus);

    // Takes the object off the bus and drops what is queued.
    void Retract();

    // Queues an event of this connection; drops and counts it when the queue is full.
    void Deliver(std::unique_ptr<Incoming> message, const std::string& connection);

    // To be called when an event for it, or a message whose sender does not wait, found no memory.
    void CountLoss() { ++dropped; }

    // Queues the news that a process has (re)started, even into a full queue: the receiver relies on it. If one of the
    // same process waits there already, nothing is added.
    void DeliverRestart(std::unique_ptr<Incoming> message);

    std::unique_ptr<Incoming> Take() { return queue_.Take(); }

    // Takes in what the bus said of a sender.
    void Identify(const std::string& connection, std::optional<uint32_t> uid);

    const std::string name;
    const OsTaskHandler handler;
    const OsTaskEntry entry;
    bool looping = false;    // a thread runs the message loop
    Waiter* loop = nullptr;  // that thread, while it waits for a message
    uint64_t dropped = 0;    // messages lost because the queue was full, or for want of memory
    bool ended = false;      // the entry has returned
    std::thread thread;      // runs the entry

    [[nodiscard]] bool HasMessage() const { return queue_.HasMessage(); }

    // Method Send of the task's object.
    static int OnSend(sd_bus_message* message, void* self, sd_bus_error* error);

private:
    int Accept(sd_bus_message* message, sd_bus_error* error);
    void Push(std::unique_ptr<Incoming> message, const std::string& connection, std::optional<uint32_t> uid);
    void WakeLoop() const;
    void CountDrop(const std::string& source, uint32_t msgId);

    Peers& peers_;
    Queue queue_;
    SlotPtr object_;
};

}  // namespace kivo::msg
