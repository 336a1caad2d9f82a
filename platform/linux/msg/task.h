// A task: its queue, and the object on the bus that fills it.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <thread>

#include "kivo/os_msg.h"
#include "msg/handles.h"
#include "msg/peers.h"
#include "msg/waiter.h"

namespace kivo::msg {

// A message that waits for its task's loop.
struct Incoming {
    TagMsgBlock block{};
    std::unique_ptr<unsigned char[]> payload;
    MessagePtr reply;  // set when one is owed: addressed; its payload is still missing
};

// Used under the process's lock, as everything that holds bus handles.
class Task {
public:
    // `descriptor` was checked before.
    Task(const OsTaskDescriptor& descriptor, std::string name, Peers& peers);

    // Puts the task's object on the bus. A negative errno on failure.
    int Publish(sd_bus* bus);

    // Takes the object off the bus and drops what is queued.
    void Retract();

    // Queues a message that the platform itself makes (an event); drops and counts it when the queue is full.
    void Deliver(std::unique_ptr<Incoming> message);

    // Queues the news that a process has (re)started, even into a full queue: the receiver relies on it. If one of the
    // same process waits there already, nothing is added.
    void DeliverRestart(std::unique_ptr<Incoming> message);

    std::unique_ptr<Incoming> Take();

    const std::string name;
    const OsTaskHandler handler;
    const OsTaskEntry entry;
    bool looping = false;    // a thread runs the message loop
    Waiter* loop = nullptr;  // that thread, while it waits for a message
    uint64_t dropped = 0;    // messages lost because the queue was full
    bool ended = false;      // the entry has returned
    std::thread thread;      // runs the entry

    [[nodiscard]] bool HasMessage() const { return !queue_.empty(); }

    // Method Send of the task's object.
    static int OnSend(sd_bus_message* message, void* self, sd_bus_error* error);

private:
    int Accept(sd_bus_message* message, sd_bus_error* error);
    void Push(std::unique_ptr<Incoming> message);
    void CountDrop(const std::string& source, uint32_t msgId);

    const size_t depth_;
    Peers& peers_;
    std::deque<std::unique_ptr<Incoming>> queue_;
    SlotPtr object_;
};

// A copy of `size` bytes as a message's payload.
void SetPayload(Incoming& message, const void* data, size_t size);

}  // namespace kivo::msg
