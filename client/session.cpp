// A requester's place on the message bus: one task for events, synchronous sends for requests.
#include "ominspect/client/session.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include <unistd.h>

#include "kivo/os_msg.h"
#include "ominspect/messages.h"
#include "wire.h"

namespace ominspect::client {
namespace {

constexpr const char* kTaskName = "ic_task";
constexpr std::uint32_t kQueueDepth = 1024;
// A process id is unique on one machine only; several containers on one bus may meet on it.
constexpr int kNameAttempts = 8;

// The platform's task functions carry no context: the events of the process's one session.
std::atomic<const Events*> g_events{nullptr};

// Copies a name that is known to fit, NUL included.
template <std::size_t size>
void SetName(char (&field)[size], std::string_view name) {
    std::memcpy(field, name.data(), std::min(name.size(), size - 1));
}

std::uint32_t HandleMessage(TagMsgBlock* msg) {
    const Events* events = g_events.load();
    // The server is the only one that this task listens to.
    if (events == nullptr || std::strcmp(msg->srcProcName, OM_INSPECT_PROC_NAME) != 0) return 0;
    const wire::Bytes data(msg->data, msg->dataLen);
    if (msg->msgId == OM_INSPECT_EVENT_RUN && events->onRun) {
        if (const auto result = wire::DecodeResult(data)) events->onRun(*result);
    } else if (msg->msgId == OM_INSPECT_EVENT_BUSY && events->onBusy) {
        if (const auto busy = wire::DecodeBusy(data)) events->onBusy(*busy);
    }
    return 0;
}

std::uint32_t RunTask() {
    const std::uint32_t result = OsMsgTaskRoutineByName(kTaskName);
    const Events* events = g_events.load();
    if (result == OS_MSG_ERR_NO_BUS && events != nullptr && events->onBusLost) events->onBusLost();
    return result;
}

std::uint32_t AttachUnique() {
    const std::string base = "ic-" + std::to_string(getpid());
    std::uint32_t result = OsProcAttach(base.c_str());
    for (int i = 1; i < kNameAttempts && result == OS_MSG_ERR_NAME_TAKEN; ++i) {
        result = OsProcAttach((base + "-" + std::to_string(i)).c_str());
    }
    return result;
}

// Sends a request and waits; the reply's payload, or the error.
Result<std::string> Ask(std::uint32_t msgId, std::string payload, std::chrono::milliseconds limit) {
    if (limit.count() < 1 || limit.count() > std::numeric_limits<std::uint32_t>::max()) {
        return Error{ErrorCode::kInvalidArgument, "the time limit is out of range"};
    }
    TagMsgBlock msg{};
    msg.msgId = msgId;
    SetName(msg.dstProcName, OM_INSPECT_PROC_NAME);
    SetName(msg.dstTaskName, OM_INSPECT_TASK_NAME);
    SetName(msg.replyTaskName, kTaskName);
    msg.dataLen = static_cast<std::uint32_t>(payload.size());
    msg.data = reinterpret_cast<unsigned char*>(payload.data());

    TagMsgBlock* raw = nullptr;
    const std::uint32_t result = OsMsgSynSend(&msg, &raw, static_cast<std::uint32_t>(limit.count()));
    const std::unique_ptr<TagMsgBlock, decltype(&OsMsgSynRespFree)> reply(raw, &OsMsgSynRespFree);
    if (result != OS_MSG_OK) return wire::FromBus(result);
    if (!reply || reply->data == nullptr) return std::string();
    return std::string(reinterpret_cast<const char*>(reply->data), reply->dataLen);
}

wire::Bytes BytesOf(const std::string& text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

}  // namespace

Session::Session(Events events) : events_(std::move(events)) {
    g_events = &events_;
}

Session::~Session() {
    OsProcDetach();
    g_events = nullptr;
}

Result<std::unique_ptr<Session>> Session::Open(Events events, std::string_view processName) {
    const std::uint32_t attached =
        processName.empty() ? AttachUnique() : OsProcAttach(std::string(processName).c_str());
    if (attached != OS_MSG_OK) return wire::FromBus(attached);
    std::unique_ptr<Session> session(new Session(std::move(events)));
    OsTaskDescriptor task{};
    SetName(task.name, kTaskName);
    task.queueDepth = kQueueDepth;
    task.handler = HandleMessage;
    task.entry = RunTask;
    const std::uint32_t created = OsTaskCreate(&task);
    if (created != OS_MSG_OK) return wire::FromBus(created);
    return session;
}

// The platform knows the process's one place on the bus by itself; that these functions need an object says that
// there is one.

// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
Result<RunReply> Session::Run(std::string_view item, std::string_view cmd, std::chrono::milliseconds limit) {
    auto request = wire::EncodeRequest(item, cmd);
    if (!request) return request.Failure();
    const auto reply = Ask(OM_INSPECT_MSG_RUN, std::move(*request), limit);
    if (!reply) return reply.Failure();
    return wire::DecodeRunReply(BytesOf(*reply), item);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
Result<ItemState> Session::State(std::string_view item, std::chrono::milliseconds limit) {
    if (auto error = CheckItemName(item)) return *error;
    const auto reply = Ask(OM_INSPECT_MSG_STATE, std::string(item), limit);
    if (!reply) return reply.Failure();
    return wire::DecodeStateReply(BytesOf(*reply));
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
std::optional<Error> Session::Subscribe() {
    OsMsgSubscription subscriptions[2]{};
    for (OsMsgSubscription& subscription : subscriptions) {
        SetName(subscription.srcProcName, OM_INSPECT_PROC_NAME);
        SetName(subscription.srcTaskName, OM_INSPECT_TASK_NAME);
        SetName(subscription.dstTaskName, kTaskName);
    }
    subscriptions[0].eventId = OM_INSPECT_EVENT_RUN;
    subscriptions[1].eventId = OM_INSPECT_EVENT_BUSY;
    const std::uint32_t result = OsMsgSubscribeEvent(subscriptions, 2, 0);
    if (result != OS_MSG_OK) return wire::FromBus(result);
    return std::nullopt;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
std::uint64_t Session::LostEvents() const {
    return OsMsgDroppedCount(kTaskName);
}

}  // namespace ominspect::client
