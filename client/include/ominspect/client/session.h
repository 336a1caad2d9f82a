// A requester's place on the message bus, and the requests it can make of the inspection server.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "ominspect/client/error.h"
#include "ominspect/client/types.h"

namespace ominspect::client {

// What a session tells by itself. The functions are called one after the other on the session's own thread;
// they must not destroy the session and must not throw. An empty one is passed over. While one runs, later
// events wait in a bounded queue (Session::LostEvents counts what did not fit).
struct Events {
    std::function<void(const ItemResult&)> onRun;  // event 8: a run began or ended
    std::function<void(bool busy)> onBusy;         // event 9: the server became busy, or idle
    std::function<void()> onBusLost;               // the bus went away; no event and no reply will come any more
};

// One per process, since a process joins the bus once. All member functions may be called from any thread.
class Session {
public:
    // Joins the bus at KIVO_BUS_ADDRESS, else the system bus. `processName` (1 to 15 bytes) is made up from the
    // process id when empty. InvalidArgument, AlreadyOpen (also: the name is taken), BusUnreachable, Denied, Internal.
    static Result<std::unique_ptr<Session>> Open(Events events = {}, std::string_view processName = {});

    // Leaves the bus, after the event function that runs has returned. Not to be called from one.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Runs an item and waits for the reply, at most `limit` (1 ms to about 49 days). `cmd` is the item's
    // argument; "stop" stops the item and "done" resets it to "idle".
    Result<RunReply> Run(std::string_view item, std::string_view cmd, std::chrono::milliseconds limit);

    // Asks for an item's state; waits as Run does.
    Result<ItemState> State(std::string_view item, std::chrono::milliseconds limit);

    // Begins the events onRun and onBusy. They go on when the server restarts. Nothing on success.
    std::optional<Error> Subscribe();

    // Events that were lost because their function was too slow.
    std::uint64_t LostEvents() const;

private:
    explicit Session(Events events);

    Events events_;
};

}  // namespace ominspect::client
