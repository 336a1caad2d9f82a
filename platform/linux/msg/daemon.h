// Questions to the bus daemon.
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <unordered_map>

#include "msg/handles.h"
#include "msg/unsent.h"

namespace kivo::msg {

// Whether the bus daemon itself sent the message. To be asked of everything that only the daemon may say: any
// connection may send a signal or a reply straight to this one. Nobody can take the daemon's own name.
bool IsFromDaemon(sd_bus_message* message);

// A question with one text as argument, or none when it is null. Null when there is no memory.
MessagePtr MakeQuestion(sd_bus* bus, const char* method, const char* argument);

// Asks for the names on the bus, or for something of one name, and waits for the answer until the deadline. Null when
// there is none, for instance because the name has no owner.
using Deadline = std::chrono::steady_clock::time_point;
MessagePtr AskForNames(sd_bus* bus, Deadline deadline);
MessagePtr AskAboutName(sd_bus* bus, const char* method, const char* name, Deadline deadline);

// Asks without waiting: many questions are on their way at once, and the answers come while the bus is read. Used under
// the process's lock.
class Daemon {
public:
    // Is called with the answer, which may be an error. Must not throw.
    using Answer = std::function<void(sd_bus_message* answer)>;

    explicit Daemon(Unsent& unsent) : unsent_(unsent) {}

    // Sends a question, which may be null for want of memory. A negative errno on failure. Throws std::bad_alloc.
    int Ask(sd_bus* bus, const MessagePtr& question, Answer answer);

    // To be called for every message that comes in. Returns whether it claims to answer a question; nobody else should
    // see it. What others send in the daemon's name is not believed, and the question stays open.
    bool TakeAnswer(sd_bus_message* message);

    void Clear() { asked_.clear(); }

private:
    Unsent& unsent_;
    std::unordered_map<uint64_t, Answer> asked_;  // by the cookie of the question
};

}  // namespace kivo::msg
