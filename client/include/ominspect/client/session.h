// A requester's place on the message bus, and the requests it can make of the inspection server.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "ominspect/client/error.h"
#include "ominspect/client/limit.h"
#include "ominspect/client/types.h"

namespace ominspect::client {

// What a session tells by itself. The functions are called one after the other on a thread of the session's;
// they must not destroy the session and must not throw. An empty one is passed over. While one runs, later
// events wait in a bounded queue (Session::LostEvents counts what did not fit).
struct Events {
    std::function<void(const ItemResult&)> onRun;  // event 8: a run began or ended
    std::function<void(bool busy)> onBusy;         // event 9: the server became busy, or idle
    std::function<void()> onBusLost;               // the bus went away; no event and no reply will come any more
};

class Connection;

// A request that the server handles in the background. Forgetting it does not stop the item. Must not outlive its
// session; used by one thread at a time.
class BackgroundRun {
public:
    BackgroundRun(BackgroundRun&& other) noexcept;
    BackgroundRun& operator=(BackgroundRun&&) = delete;
    ~BackgroundRun();

    // Waits for what the server sends next. A run's last result has a status other than "running"; the one result of
    // "stop" or "done" is the last whatever its status. Cancelled, TimeLimit, ServerAbsent (also: it restarted and
    // knows nothing of the run), BusUnreachable, MalformedReply (the owner's result has a text that does not end).
    Result<ItemResult> Next(const Limit& limit);

    // Waits for the last result; `onRunning`, if any, is called for each one before it.
    Result<ItemResult> Await(const Limit& limit, const std::function<void(const ItemResult&)>& onRunning = {});

    // What is known of where the run comes from; never kUnknown after a result.
    RunOrigin Origin() const;

private:
    friend class Session;
    BackgroundRun(Connection& connection, const Request& request, std::size_t lane, std::uint64_t serverLife);

    Connection* connection_;  // null once moved from
    std::string item_;
    RequestKind kind_;
    std::size_t lane_;  // the way its results come in
    std::uint64_t serverLife_;
};

// A group that runs in the server. It must be stopped when its record is there, or it lingers for two minutes in which
// no other of its name can start. Forgetting it does not stop it. Must not outlive its session; used by one thread at a
// time.
class GroupRun {
public:
    std::uint32_t TaskId() const { return taskId_; }

    // Waits for the record. Errors as BackgroundRun::Next.
    Result<GroupRecord> Await(const Limit& limit);

private:
    friend class Session;
    GroupRun(Connection& connection, std::uint32_t taskId, std::uint64_t serverLife);

    Connection* connection_;
    std::uint32_t taskId_;
    std::uint64_t serverLife_;
};

// One per process, since a process joins the bus once. All member functions may be called from any thread; each waits
// for the server's reply within its limit and fails with TimeLimit or Cancelled after it, with ServerAbsent or
// BusUnreachable at once when there is nobody to wait for, with InvalidArgument before anything is sent, and with
// MalformedReply for a reply that is no such record.
class Session {
public:
    // Joins the bus at KIVO_BUS_ADDRESS, else the system bus. `processName` (1 to 15 bytes) is made up from the
    // process id when empty. InvalidArgument, AlreadyOpen (also: the name is taken), BusUnreachable, Denied, Internal.
    static Result<std::unique_ptr<Session>> Open(Events events = {}, std::string_view processName = {});

    // Leaves the bus, after the event function that runs has returned. Not to be called from one.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Runs an item synchronously. The server serves nobody else until the item's owner has answered, which may take
    // five minutes: RunItem (run.h) does without that. `isPending` says that the owner reports later.
    Result<RunReply> Run(const Request& request, const Limit& limit);

    // Sends a request for an item, which the server handles in the background: the result of an item whose owner
    // answers at once is the one result of its run. Every call sends: the server lets a request join a run that is
    // under way (BackgroundRun::Origin). InvalidArgument also when 16 requests of this session wait for the item.
    // RunItem (run.h) does the whole of it.
    Result<BackgroundRun> Start(const Request& request, const Limit& limit);

    // Asks an item's owner to stop it, and gives the owner's answer. Whoever waits for a run of it gets the run's last
    // result from the server.
    Result<ItemResult> Stop(std::string_view item, const Limit& limit);

    // Starts a group of 1 to 32 items. GroupBusy: one of its name runs; Refused: the server has no worker. Waits for
    // the answer up to 6 s longer than the limit, and as long after a cancellation, since a group whose task id nobody
    // knows cannot be stopped; after that it may still start. RunGroup (group.h) does the whole of it.
    Result<GroupRun> StartGroup(std::span<const Request> requests, const Limit& limit);

    // Asks a task to stop: a group's items that have not begun do not begin, the running ones are asked to stop. False:
    // the server knows no such task, or it has ended.
    Result<bool> StopTask(std::uint32_t taskId, const Limit& limit);

    // Sets an item back to "idle". The server does not say whether it knows the item. Whoever waits for a run of it
    // gets the status "idle".
    std::optional<Error> Reset(std::string_view item, const Limit& limit);

    // Asks for an item's state.
    Result<ItemState> State(std::string_view item, const Limit& limit);

    // Asks for the configured items.
    Result<Catalogue> List(const Limit& limit);

    // Asks the server for the configured items, and all processes on the bus for those that they own; the latter get
    // two seconds. An item whose owner does not use the engine client library, but registers it with a message of its
    // own, has no owner here.
    Result<Inventory> Items(const Limit& limit);

    // Begins the events onRun and onBusy. They go on when the server restarts. Nothing on success.
    std::optional<Error> Subscribe();

    // Events that were lost because their function was too slow.
    std::uint64_t LostEvents() const;

private:
    explicit Session(std::unique_ptr<Connection> connection);

    std::unique_ptr<Connection> connection_;
};

}  // namespace ominspect::client
