// Who wants the events of this process.
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <string>
#include <unordered_set>

#include "msg/handles.h"

namespace kivo::msg {

// The object by which other processes say that they want this one's events: while nobody does, none is sent, and a
// process that publishes much costs the bus nothing. A connection counts once, however often it subscribes, until it
// unsubscribes or ends. Used under the process's lock.
//
// sd_bus_track(3) would keep such a list too, but it believes the end of a connection from whoever sends the signal;
// Peers believes it from the daemon only.
class Subscribers {
public:
    // Puts the object on the bus. A negative errno on failure.
    int Publish(sd_bus* bus);

    // Takes the object off the bus and forgets everybody.
    void Clear();

    // To be called when a connection has ended.
    void Forget(const std::string& connection) { connections_.erase(connection); }

    // Whether events are to be sent: somebody has subscribed, or may be about to because this process is new, or
    // may have subscribed without being noted.
    [[nodiscard]] bool Wanted() const;

private:
    static int OnSubscribe(sd_bus_message* message, void* self, sd_bus_error* error);
    static int OnUnsubscribe(sd_bus_message* message, void* self, sd_bus_error* error);

    static const sd_bus_vtable kTable[];

    SlotPtr object_;
    std::unordered_set<std::string> connections_;
    bool everybody_ = false;  // there was no memory to note somebody: events are always sent from then on
    std::chrono::steady_clock::time_point settled_;  // until then events are always sent
};

}  // namespace kivo::msg
