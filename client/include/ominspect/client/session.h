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
class Connection;  // the library's own: not visible outside
}

#pragma GCC visibility push(default)

namespace ominspect::client {

// Functions that a session calls when something happens; each may be empty. They are called one after the other on a
// thread of the session's, and must neither destroy the session nor throw. While one runs, later events wait in a
// bounded queue; Session::LostEvents counts those that did not fit, that found no memory, or whose function threw.
struct Events {
    std::function<void(const ItemResult&)> onRun;  // event 8: a run began or ended
    std::function<void(bool busy)> onBusy;         // event 9: the server became busy, or idle
    std::function<void()> onBusLost;               // the bus went away; no event and no reply will come any more
};

// A request that the server handles in the background. Destroying it does not stop the item. It must not outlive its
// session and is used by one thread at a time.
class BackgroundRun {
public:
    BackgroundRun(BackgroundRun&& other) noexcept;
    BackgroundRun& operator=(BackgroundRun&&) = delete;
    ~BackgroundRun();

    // Waits for the next result. A run's last result has a status other than "running"; the one result of "stop" or
    // "done" is the last whatever its status. Cancelled, TimeLimit, ServerAbsent (also if it restarted and forgot the
    // run), BusUnreachable, MalformedReply (the owner's result has a text that does not end).
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

// A group that runs in the server. It must be stopped when its record has arrived: otherwise no other group of its name
// can start for two minutes. Destroying the object does not stop it. It must not outlive its session and is used by one
// thread at a time.
class GroupRun {
public:
    std::uint32_t TaskId() const { return taskId_; }

    // Waits for the record. The errors are those of BackgroundRun::Next.
    Result<GroupRecord> Await(const Limit& limit);

private:
    friend class Session;
    GroupRun(Connection& connection, std::uint32_t taskId, std::uint64_t serverLife);

    Connection* connection_;
    std::uint32_t taskId_;
    std::uint64_t serverLife_;
};

// A process has one session, since it joins the bus once. Any thread may call any function. Each waits for the server's
// reply within its limit. It fails with TimeLimit or Cancelled when that ends, at once with ServerAbsent,
// BusUnreachable or Denied, with InvalidArgument before anything is sent, and with MalformedReply for a reply of
// another form.
class Session {
public:
    // Joins the bus at KIVO_BUS_ADDRESS, else the system bus. `processName` has 1 to 15 bytes; an empty one
    // is made from the process id. Whoever may only ask needs one that begins with "ic-". InvalidArgument, AlreadyOpen
    // (also: the name is taken), BusUnreachable, Denied, Internal.
    static Result<std::unique_ptr<Session>> Open(Events events = {}, std::string_view processName = {});

    // Leaves the bus. It waits for a running event function to return, so it must not be called from one.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Runs an item synchronously. The server serves no other client until the item's owner has answered, which may take
    // five minutes; RunItem (run.h) avoids that. `isPending`: the owner reports later.
    Result<RunReply> Run(const Request& request, const Limit& limit);

    // Sends a request for any item, which the server handles in the background. If the item runs already, the request
    // joins that run (BackgroundRun::Origin). InvalidArgument also if 16 requests of this session wait for the item.
    // RunItem (run.h) also waits for its turn and stops what it started.
    Result<BackgroundRun> Start(const Request& request, const Limit& limit);

    // Asks an item's owner to stop it, and gives the owner's answer. The last result of the run goes to those who wait
    // for the run.
    Result<ItemResult> Stop(std::string_view item, const Limit& limit);

    // Starts a group of 1 to 32 items. GroupBusy: a group of its name runs; Refused: the server has no worker. Waits
    // for the answer up to 6 s beyond the limit or a cancellation, since a group without a known task id cannot be
    // stopped. After that it may still start. RunGroup (group.h) also waits for the record and stops the group.
    Result<GroupRun> StartGroup(std::span<const Request> requests, const Limit& limit);

    // Asks a task to stop: the items of the group that have not begun do not begin, and the running ones are asked to
    // stop. False: the server knows no such task, or it has ended.
    Result<bool> StopTask(std::uint32_t taskId, const Limit& limit);

    // Sets an item back to "idle". The server does not say whether it knows the item. Those who wait for a run of it
    // get the status "idle".
    std::optional<Error> Reset(std::string_view item, const Limit& limit);

    // Asks for an item's state.
    Result<ItemState> State(std::string_view item, const Limit& limit);

    // Asks for the configured items.
    Result<Catalogue> List(const Limit& limit);

    // Asks the server for the configured items, and every process on the bus for the items that it owns; the processes
    // have two seconds to answer. An owner is listed only if it uses the engine client library.
    Result<Inventory> Items(const Limit& limit);

    // The same for configured items that are known from elsewhere. It needs the bus, but not the server.
    Result<Inventory> OwnersOf(Catalogue catalogue, const Limit& limit);

    // Begins the events onRun and onBusy. They continue after a restart of the server. Nothing on success.
    std::optional<Error> Subscribe();

    // Begins to hear what the items of a process measure, which it tells by events of its own (ominspect/perfdata.h).
    // `take` is called as the functions of Events are. Nothing says that the process owns the item which it names. The
    // events continue after a restart of the process. A second call for a process puts another function in the place of
    // the first. It waits up to two seconds for a process that hangs. InvalidArgument: the name is empty or has more
    // than 15 bytes.
    std::optional<Error> SubscribePerfData(std::string_view process, std::function<void(const PerfData&)> take);

    // How often the server has appeared on the bus since the session was opened.
    std::uint64_t ServerStarts() const;

    // The number of events that were lost: because the event functions were too slow, or for want of memory.
    std::uint64_t LostEvents() const;

private:
    explicit Session(std::unique_ptr<Connection> connection);

    std::unique_ptr<Connection> connection_;
};

}  // namespace ominspect::client

#pragma GCC visibility pop
