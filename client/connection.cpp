// Messages and events reach this process through its tasks; a send waits for its reply.
#include "connection.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include "failure.h"
#include "ominspect/messages.h"
#include "ominspect/perfdata.h"
#include "wire.h"

namespace ominspect::client {
namespace {

// The task of the first lane; the others have the lane's number appended. Events have a task of their own, since an
// event function may be slow and must not hold up results.
constexpr std::string_view kMailTask = "ic_task";
constexpr const char* kEventTask = "ic_events";
constexpr std::uint32_t kQueueDepth = 1024;
// Process ids are unique within one container only, and several containers may share a bus.
constexpr int kNameAttempts = 8;
// A server that does not answer within this time counts as busy.
constexpr std::chrono::milliseconds kPresenceLimit{500};

// The process's one connection, for the task functions, which get no context.
std::atomic<Connection*> g_connection{nullptr};

// Copies a name that is known to fit with its NUL.
template <std::size_t size>
void SetName(char (&field)[size], std::string_view name) {
    std::memcpy(field, name.data(), std::min(name.size(), size - 1));
}

std::string MailTask(std::size_t lane) {
    return std::string(kMailTask) + (lane > 0 ? std::to_string(lane) : "");
}

std::size_t LaneOf(std::string_view task) {
    std::size_t lane = 0;
    (void)std::from_chars(task.data() + kMailTask.size(), task.data() + task.size(), lane);
    return lane;
}

// Joins the bus under this name or, if it is empty, under one made from the process id.
std::optional<Error> Attach(std::string name) {
    const bool given = !name.empty();
    const std::string base = given ? name : "ic-" + std::to_string(getpid());
    name = base;
    std::uint32_t result = OsProcAttach(name.c_str());
    for (int i = 1; !given && i < kNameAttempts && result == OS_MSG_ERR_NAME_TAKEN; ++i) {
        name = base + "-" + std::to_string(i);
        result = OsProcAttach(name.c_str());
    }
    if (result != OS_MSG_OK) {
        return JoinError(result, name);
    }
    return std::nullopt;
}

TagMsgBlock EnvelopeOf(std::uint32_t msgId, std::uint32_t param, std::size_t lane = 0) {
    TagMsgBlock msg{};
    msg.msgId = msgId;
    msg.param = param;
    SetName(msg.dstProcName, OM_INSPECT_PROC_NAME);
    SetName(msg.dstTaskName, OM_INSPECT_TASK_NAME);
    SetName(msg.replyTaskName, MailTask(lane));
    return msg;
}

OsTaskDescriptor TaskOf(std::string_view name, OsTaskHandler handler, OsTaskEntry entry) {
    OsTaskDescriptor task{};
    SetName(task.name, name);
    task.queueDepth = kQueueDepth;
    task.handler = handler;
    task.entry = entry;
    return task;
}

std::optional<Error> CreateTask(const OsTaskDescriptor& task) {
    const std::uint32_t created = OsTaskCreate(&task);
    return created != OS_MSG_OK ? std::optional(SendError(created)) : std::nullopt;
}

void SetPayload(TagMsgBlock& msg, std::string& payload) {
    msg.dataLen = static_cast<std::uint32_t>(payload.size());
    msg.data = reinterpret_cast<unsigned char*>(payload.data());
}

Error TimeIsOver() {
    return SendError(OS_MSG_ERR_TIMEOUT);
}

Result<std::string> Send(TagMsgBlock msg, std::string payload, std::chrono::milliseconds time) {
    // A limit of 0 would send without waiting.
    if (time.count() < 1) {
        return TimeIsOver();
    }
    SetPayload(msg, payload);
    TagMsgBlock* raw = nullptr;
    const std::uint32_t result = OsMsgSynSend(&msg, &raw, static_cast<std::uint32_t>(time.count()));
    const std::unique_ptr<TagMsgBlock, decltype(&OsMsgSynRespFree)> reply(raw, &OsMsgSynRespFree);
    if (result != OS_MSG_OK) {
        return SendError(result);
    }
    if (!reply || reply->data == nullptr) {
        return std::string();
    }
    return std::string(reinterpret_cast<const char*>(reply->data), reply->dataLen);
}

}  // namespace

// Work that another thread waits for and may abandon.
struct Call {
    std::mutex mutex;  // guards what follows `done`
    std::condition_variable_any done;
    std::optional<Result<std::string>> reply;
    bool noMemory = false;  // the work has ended without a reply

    // With the lock.
    [[nodiscard]] bool HasEnded() const { return noMemory || reply.has_value(); }

    bool IsOver() {
        const std::lock_guard lock(mutex);
        return HasEnded();
    }

    // For the call's own thread, out of which nothing may be thrown.
    void Do(const std::function<Result<std::string>()>& work) noexcept {
        try {
            auto result = work();
            const std::lock_guard lock(mutex);
            reply = std::move(result);
        } catch (const std::bad_alloc&) {
            const std::lock_guard lock(mutex);
            noMemory = true;
        } catch (...) {
            const std::lock_guard lock(mutex);
            reply = Error{ErrorCode::kInternal, "internal error"};  // short enough to need no memory
        }
        done.notify_all();
    }

    // Once it is over.
    Result<std::string> Take() { return noMemory ? throw std::bad_alloc() : std::move(*reply); }
};

Connection::Connection(Events events) : events_(std::move(events)) {}

Connection::~Connection() {
    if (!joined_) {
        return;
    }
    OsProcDetach();  // ends the tasks and every send
    Connection* self = this;
    (void)g_connection.compare_exchange_strong(self, nullptr);  // another one may have joined by now
    for (Abandoned& send : abandoned_) {
        send.thread.join();
    }
}

std::optional<Error> Connection::Join(std::string_view processName) {
    if (auto error = Attach(std::string(processName))) {
        return error;
    }
    joined_ = true;
    g_connection = this;
    if (auto error = CreateTask(TaskOf(kMailTask, HandleMail, RunMail))) {
        return error;
    }
    if (HasListeners()) {
        if (auto error = CreateTask(TaskOf(kEventTask, HandleEvent, RunEvents))) {
            return error;
        }
    }
    return Subscribe(MailTask(0), kServer, {OS_MSG_EVENT_PROC_RESTART});
}

bool Connection::HasListeners() const {
    return events_.onRun || events_.onBusy || events_.onBusLost;
}

// The tasks accept messages from the server only, but for what was subscribed to with others.
Connection* Connection::Addressee(const TagMsgBlock& msg) {
    return std::strcmp(msg.srcProcName, OM_INSPECT_PROC_NAME) == 0 ? g_connection.load() : nullptr;
}

std::uint32_t Connection::HandleMail(TagMsgBlock* msg) {
    if (Connection* connection = Addressee(*msg)) {
        connection->TakeMail(*msg);
    }
    return 0;
}

std::uint32_t Connection::HandleEvent(TagMsgBlock* msg) {
    Connection* const own = g_connection.load();
    if (own == nullptr) {
        return 0;
    }
    try {
        if (Addressee(*msg) != nullptr) {
            own->TellEvent(*msg);
        } else if (msg->msgId == OM_INSPECT_EVENT_PERFDATA) {
            own->TellPerfData(*msg);
        }
    } catch (...) {
        ++own->thrownEvents_;
        throw;
    }
    return 0;
}

std::uint32_t Connection::RunMail() {
    const std::uint32_t result = OsMsgTaskRoutineByName(MailTask(0).c_str());
    Connection* connection = g_connection.load();
    if (result == OS_MSG_ERR_NO_BUS && connection != nullptr) {
        connection->inbox_.BusLost();
    }
    return result;
}

std::uint32_t Connection::RunEvents() {
    const std::uint32_t result = OsMsgTaskRoutineByName(kEventTask);
    Connection* connection = g_connection.load();
    if (result == OS_MSG_ERR_NO_BUS && connection != nullptr && connection->events_.onBusLost) {
        connection->events_.onBusLost();
    }
    return result;
}

void Connection::TakeMail(const TagMsgBlock& msg) {
    const wire::Bytes data(msg.data, msg.dataLen);
    const std::size_t lane = LaneOf(msg.dstTaskName);
    switch (msg.msgId) {
        case OM_INSPECT_MSG_RUN:
            if (const auto item = wire::ItemOf(data)) {
                inbox_.Put({lane, *item}, wire::DecodeResult(data));
            }
            break;
        case OM_INSPECT_EVENT_RUN:
            if (const auto result = wire::DecodeResult(data); result && wire::IsBeginning(*result)) {
                inbox_.RunBegan({lane, result->name});
            }
            break;
        case OM_INSPECT_MSG_RUN_GROUP:
            if (const auto taskId = wire::TaskOf(data)) {
                inbox_.Put(*taskId, wire::DecodeGroupRecord(data));
            }
            break;
        case OS_MSG_EVENT_PROC_RESTART:
            inbox_.ServerRestarted();
            break;
        default:
            break;
    }
}

// A malformed event is ignored, as nobody waits for it.
void Connection::TellEvent(const TagMsgBlock& msg) const {
    const wire::Bytes data(msg.data, msg.dataLen);
    if (msg.msgId == OM_INSPECT_EVENT_RUN && events_.onRun) {
        if (const auto result = wire::DecodeResult(data)) {
            events_.onRun(*result);
        }
    } else if (msg.msgId == OM_INSPECT_EVENT_BUSY && events_.onBusy) {
        if (const auto busy = wire::DecodeBusy(data)) {
            events_.onBusy(*busy);
        }
    }
}

// The message layer passes on the events of those whom somebody subscribed to, and vouches for the sender.
void Connection::TellPerfData(const TagMsgBlock& msg) {
    PerfDataTaker taker;
    {
        const std::lock_guard lock(mutex_);
        const auto found = perfDataTakers_.find(msg.srcProcName);
        taker = found == perfDataTakers_.end() ? nullptr : found->second;
    }
    const auto perfData = wire::DecodePerfData({msg.data, msg.dataLen});
    if (taker && perfData) {
        (*taker)(*perfData);
    }
}

Result<std::string> Connection::Ask(std::uint32_t msgId, std::string payload, const Limit& limit, std::uint32_t param,
                                    std::chrono::milliseconds grace) {
    const auto send = [msg = EnvelopeOf(msgId, param), payload = std::move(payload), time = limit.Left() + grace] {
        return Send(msg, payload, time);
    };
    // The platform's send cannot be ended early.
    return limit.Cancel().stop_possible() ? Cancellable(send, limit.Cancel(), grace) : send();
}

Result<std::string> Connection::Cancellable(std::function<Result<std::string>()> work, const std::stop_token& cancel,
                                            std::chrono::milliseconds grace) {
    const Error cancelled{ErrorCode::kCancelled, "cancelled"};
    if (cancel.stop_requested()) {
        return cancelled;
    }
    const auto call = std::make_shared<Call>();
    // Made before there is a thread: leaving one behind needs no memory.
    std::list<Abandoned> place;
    place.push_back({call, {}});
    std::thread& worker = place.front().thread;
    try {
        worker = std::thread([call, work = std::move(work)] { call->Do(work); });
        (void)pthread_setname_np(worker.native_handle(), "inspect_call");
    } catch (const std::system_error&) {
        return Error{ErrorCode::kInternal, "no thread for the request"};
    }
    std::unique_lock lock(call->mutex);
    const auto isThere = [&] { return call->HasEnded(); };
    if (call->done.wait(lock, cancel, isThere) || call->done.wait_for(lock, grace, isThere)) {
        lock.unlock();
        worker.join();
        return call->Take();
    }
    lock.unlock();
    Abandon(place);
    return cancelled;
}

// Joins at the same time the threads that have ended by now.
void Connection::Abandon(std::list<Abandoned>& place) {
    const std::lock_guard lock(mutex_);
    abandoned_.remove_if([](Abandoned& send) {
        const bool over = send.call->IsOver();
        if (over) {
            send.thread.join();
        }
        return over;
    });
    abandoned_.splice(abandoned_.end(), place);
}

std::optional<Error> Connection::PostByLane(std::size_t lane, std::uint32_t msgId, std::string payload) {
    if (auto error = OpenLane(lane)) {
        return error;
    }
    TagMsgBlock msg = EnvelopeOf(msgId, 0, lane);
    SetPayload(msg, payload);
    const std::uint32_t result = OsMsgAsynSend(&msg);
    if (result != OS_MSG_OK) {
        return SendError(result);
    }
    return std::nullopt;
}

// A lane stays open, because a task lives as long as the process is on the bus.
std::optional<Error> Connection::OpenLane(std::size_t lane) {
    const std::lock_guard lock(mutex_);
    for (; openLanes_ <= lane; ++openLanes_) {
        const std::string name = MailTask(openLanes_);
        const OsTaskDescriptor task = TaskOf(name, HandleMail, nullptr);
        // The task may exist already: the first lane's always does, another's after a subscription that failed.
        const std::uint32_t created = OsTaskCreate(&task);
        if (created != OS_MSG_OK && created != OS_MSG_ERR_NAME_TAKEN) {
            return SendError(created);
        }
        if (auto error = Subscribe(name, kServer, {OM_INSPECT_EVENT_RUN})) {
            return error;
        }
    }
    return std::nullopt;
}

Result<bool> Connection::CheckPresence(const Limit& limit) {
    // A state request without a name is answered and does nothing.
    const auto reply = Ask(OM_INSPECT_MSG_STATE, "", Limit(std::min(limit.Left(), kPresenceLimit), limit.Cancel()));
    if (reply) {
        return true;
    }
    switch (reply.Failure().code) {
        case ErrorCode::kServerAbsent:
        case ErrorCode::kBusUnreachable:
        case ErrorCode::kDenied:
        case ErrorCode::kCancelled:
            return reply.Failure();
        default:
            return false;
    }
}

std::uint64_t Connection::LostEvents() const {
    return OsMsgDroppedCount(kEventTask) + thrownEvents_;
}

std::optional<Error> Connection::SubscribePerfData(std::string_view process,
                                                   std::function<void(const PerfData&)> take) {
    if (process.empty() || process.size() >= OS_MSG_NAME_SIZE) {
        return Error{ErrorCode::kInvalidArgument, "a process name has 1 to 15 bytes"};
    }
    const OsTaskDescriptor task = TaskOf(kEventTask, HandleEvent, RunEvents);
    const std::uint32_t created = OsTaskCreate(&task);
    if (created != OS_MSG_OK && created != OS_MSG_ERR_NAME_TAKEN) {
        return SendError(created);
    }
    {
        const std::lock_guard lock(mutex_);
        perfDataTakers_[std::string(process)] =
            std::make_shared<const std::function<void(const PerfData&)>>(std::move(take));
    }
    return Subscribe(kEventTask, {process, OM_INSPECT_PERFDATA_TASK}, {OM_INSPECT_EVENT_PERFDATA});
}

std::optional<Error> Connection::SubscribeEvents() const {
    if (!HasListeners()) {
        return std::nullopt;
    }
    return Subscribe(kEventTask, kServer, {OM_INSPECT_EVENT_RUN, OM_INSPECT_EVENT_BUSY});
}

std::optional<Error> Connection::Subscribe(const std::string& task, const Source& source,
                                           std::initializer_list<std::uint32_t> eventIds) {
    std::vector<OsMsgSubscription> subscriptions;
    for (const std::uint32_t eventId : eventIds) {
        OsMsgSubscription& subscription = subscriptions.emplace_back();
        subscription.eventId = eventId;
        SetName(subscription.srcProcName, source.process);
        SetName(subscription.srcTaskName, source.task);
        SetName(subscription.dstTaskName, task);
    }
    const std::uint32_t result =
        OsMsgSubscribeEvent(subscriptions.data(), static_cast<std::uint32_t>(subscriptions.size()), 0);
    if (result != OS_MSG_OK) {
        return SendError(result);
    }
    return std::nullopt;
}

}  // namespace ominspect::client
