// The message bus's interface (os_msg.h) over the simulated bus.
#include "kivo/os_msg.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "actors/actors.h"
#include "common/msg_rules.h"
#include "model/ledger.h"
#include "world/bus.h"
#include "world/events.h"
#include "world/faults.h"
#include "world/journal.h"
#include "world/observer.h"
#include "world/outcome.h"

using namespace sim;
using kivo::ReadName;
using kivo::WriteName;

namespace {

// A reply as its receiver holds it; the envelope comes first, so that its address is the reply's.
struct Reply {
    TagMsgBlock envelope{};
    Bytes data;
};

BytesView PayloadOf(const TagMsgBlock& message) {
    return {message.data, message.dataLen};
}

BytesView ViewOf(const void* data, uint32_t size) {
    return {static_cast<const unsigned char*>(data), size};
}

Bytes CopyOf(BytesView data) {
    return {data.begin(), data.end()};
}

std::string_view View(BytesView data) {
    return {reinterpret_cast<const char*>(data.data()), data.size()};
}

// The envelope as the receiver sees it: what the bus knows of the sender, and what the sender may say.
Delivery MakeDelivery(const Process& sender, const TagMsgBlock& message, bool synchronous) {
    Delivery delivery;
    TagMsgBlock& envelope = delivery.envelope;
    const std::string& task = Self()->task;
    envelope.msgType = synchronous ? 1 : 0;
    envelope.uid = 1000;
    WriteName(envelope.srcProcName, sender.name);
    WriteName(envelope.srcTaskName, task);
    envelope.msgId = message.msgId;
    WriteName(envelope.dstProcName, message.dstProcName);
    WriteName(envelope.dstTaskName, message.dstTaskName);
    envelope.param = message.param;
    WriteName(envelope.replyTaskName, message.replyTaskName[0] == '\0' ? task : message.replyTaskName);
    envelope.dataLen = message.dataLen;
    delivery.data = CopyOf(PayloadOf(message));
    return delivery;
}

// What a requester asks of the server; 0: it is none.
model::Stamp NoteRequest(const Process& process, const TagMsgBlock& message) {
    if (process.kind != "requester" || std::string_view(message.dstProcName) != "ominspect") {
        return 0;
    }
    return model::TheLedger().Ask(process.name, message.msgId, PayloadOf(message));
}

void CheckLocks(const char* what) {
    if (!Self()->locks.empty()) {
        Violation(std::string(what) + " with a lock held");
    }
}

uint32_t SynSend(const TagMsgBlock& message, TagMsgBlock** resp, uint32_t timeoutMs) {
    Process& process = CurrentProcess();
    if (const uint32_t wrong = kivo::CheckMessage(message); wrong != OS_MSG_OK) {
        return wrong;
    }
    if (!process.Attached()) {
        return process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_ERR_NOT_ATTACHED;
    }
    if (process.observer != nullptr && IsDue(Fault::kSendFails)) {
        return OS_MSG_ERR_NO_MEMORY;
    }
    const auto request = std::make_shared<Request>();
    request->from = &process;
    request->fromName = process.name;
    request->toName = message.dstProcName;
    request->deadline = Now() + timeoutMs * kMilli;
    const model::Stamp asked = NoteRequest(process, message);
    Ask(request, MakeDelivery(process, message, true));
    if (request->result == OS_MSG_ERR_NOT_ATTACHED && process.kind == "requester") {
        Reached("client: left while it asked");
    }
    if (request->result == OS_MSG_OK) {
        if (asked != 0 && message.msgId == 0) {
            model::TheLedger().GetReply(process.name, request->reply, asked);
        }
        auto reply = std::make_unique<Reply>();
        reply->data = std::move(request->reply);
        reply->envelope.msgId = message.msgId;
        WriteName(reply->envelope.srcProcName, message.dstProcName);
        WriteName(reply->envelope.srcTaskName, message.dstTaskName);
        reply->envelope.dataLen = static_cast<uint32_t>(reply->data.size());
        reply->envelope.data = reply->data.empty() ? nullptr : reply->data.data();
        ++process.answers;
        *resp = &reply.release()->envelope;
    }
    return request->result;
}

uint32_t AsynSend(const TagMsgBlock& message) {
    Process& process = CurrentProcess();
    if (const uint32_t wrong = kivo::CheckMessage(message); wrong != OS_MSG_OK) {
        return wrong;
    }
    if (!process.Attached()) {
        return process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_ERR_NOT_ATTACHED;
    }
    if (process.observer != nullptr && IsDue(Fault::kSendFails)) {
        return OS_MSG_ERR_NO_MEMORY;
    }
    NoteRequest(process, message);
    Send(process, message.dstProcName, MakeDelivery(process, message, false));
    return OS_MSG_OK;
}

uint32_t BroadcastEvent(const OsMsgEvent& event, uint32_t scope) {
    Process& process = CurrentProcess();
    const std::string task = ReadName(event.taskName, sizeof event.taskName);
    if (scope != 1 || task.empty()) {
        return OS_MSG_ERR_PARAM;
    }
    if (const uint32_t wrong = kivo::CheckPayload(event.data, event.dataLen); wrong != OS_MSG_OK) {
        return wrong;
    }
    if (!process.Attached()) {
        return process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_ERR_NOT_ATTACHED;
    }
    if (process.FindTask(task) == nullptr) {
        return OS_MSG_ERR_NO_TASK;
    }
    if (process.observer != nullptr && IsDue(Fault::kSendFails)) {
        return OS_MSG_ERR_NO_MEMORY;
    }
    Broadcast(process, task, event.eventId, CopyOf(ViewOf(event.data, event.dataLen)));
    return OS_MSG_OK;
}

std::shared_ptr<Task> MakeTask(const OsTaskDescriptor& descriptor) {
    auto task = std::make_shared<Task>();
    task->name = ReadName(descriptor.name, sizeof descriptor.name);
    // A life has too few events to fill the queue of an event function that dawdles.
    const bool small = GetsEvents("ominspect", task->name) && TheManners().dawdles;
    task->queueDepth = small ? 16 : descriptor.queueDepth;
    task->handler = descriptor.handler;
    task->entry = descriptor.entry;
    return task;
}

uint32_t AddTask(Process& process, const OsTaskDescriptor& descriptor) {
    if (const uint32_t wrong = kivo::CheckTask(descriptor); wrong != OS_MSG_OK) {
        return wrong;
    }
    auto task = MakeTask(descriptor);
    if (process.FindTask(task->name) != nullptr) {
        return OS_MSG_ERR_NAME_TAKEN;
    }
    process.tasks.push_back(std::move(task));
    return OS_MSG_OK;
}

void RunTask(Process& process, const std::shared_ptr<Task>& task) {
    if (task->entry != nullptr) {
        task->entry();
    } else {
        const InPlatform platform;
        RunLoop(process, task);
    }
    const InPlatform platform;
    task->ended = true;
    Wake(&process);
}

void StartTask(Process& process, const std::shared_ptr<Task>& task) {
    Spawn(process, task->name, [&process, task] { RunTask(process, task); }).task = task->name;
}

void JoinTasks(Process& process) {
    WaitFor("its tasks to end", &process, kNever,
            [&process] { return std::ranges::all_of(process.tasks, [](const auto& task) { return task->ended; }); });
}

uint32_t Subscribe(Process& process, std::span<const OsMsgSubscription> subscriptions) {
    if (!process.Attached()) {
        return process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_ERR_NOT_ATTACHED;
    }
    if (IsDue(Fault::kSubscriptionFails)) {
        return OS_MSG_ERR_NO_MEMORY;
    }
    for (const OsMsgSubscription& wanted : subscriptions) {
        if (process.FindTask(ReadName(wanted.dstTaskName, sizeof wanted.dstTaskName)) == nullptr) {
            return OS_MSG_ERR_NO_TASK;
        }
        const bool known = std::ranges::any_of(process.subscriptions, [&wanted](const auto& other) {
            return std::memcmp(&other, &wanted, sizeof wanted) == 0;
        });
        if (!known) {
            process.subscriptions.push_back(wanted);
        }
    }
    return OS_MSG_OK;
}

uint32_t MayAttach(const Process& process, const char* name) {
    if (name == nullptr || !kivo::IsValidName(name)) {
        return OS_MSG_ERR_PARAM;
    }
    if (process.state != Process::State::kOff) {
        return OS_MSG_ERR_ATTACHED;
    }
    return FindProcess(name) != nullptr ? OS_MSG_ERR_NAME_TAKEN : OS_MSG_OK;
}

}  // namespace

uint32_t OsMsgSynSend(const TagMsgBlock* msg, TagMsgBlock** resp, uint32_t timeoutMs) {
    const InPlatform platform;
    Point();
    CheckLocks("asks another process");
    if (msg == nullptr || resp == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    *resp = nullptr;
    const BytesView payload = PayloadOf(*msg);
    Note({"asks ", msg->msgId, " ", msg->dstProcName, ":", msg->dstTaskName}, View(payload));
    if (Observer* const observer = TheObserver()) {
        observer->OnAsk(*Self(), *msg, payload, timeoutMs);
    }
    const uint32_t result = SynSend(*msg, resp, timeoutMs);
    const BytesView reply = *resp == nullptr ? BytesView() : PayloadOf(**resp);
    Note({"answered ", result}, View(reply));
    if (Observer* const observer = TheObserver()) {
        observer->OnAnswer(*Self(), result, reply);
    }
    return result;
}

void OsMsgSynRespFree(TagMsgBlock* resp) {
    const InPlatform platform;
    if (resp != nullptr) {
        --CurrentProcess().answers;
        delete reinterpret_cast<Reply*>(resp);
    }
}

uint32_t OsMsgAsynSend(const TagMsgBlock* msg) {
    const InPlatform platform;
    Point();
    if (msg == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    const uint32_t result = AsynSend(*msg);
    const BytesView payload = PayloadOf(*msg);
    Note({"sends ", msg->msgId, " ", msg->dstProcName, ":", msg->dstTaskName, " ", result}, View(payload));
    if (Observer* const observer = TheObserver()) {
        observer->OnSend(*Self(), *msg, payload, result);
    }
    return result;
}

uint32_t OsMsgSynSendResp(const TagMsgBlock* msg, const void* data, uint32_t dataLen) {
    const InPlatform platform;
    Point();
    if (msg == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    if (const uint32_t wrong = kivo::CheckPayload(data, dataLen); wrong != OS_MSG_OK) {
        return wrong;
    }
    Process& process = CurrentProcess();
    uint32_t result = OS_MSG_ERR_NO_REQUEST;
    const BytesView reply = ViewOf(data, dataLen);
    const auto owed = process.owed.find(kivo::TokenOf(*msg));
    if (process.state == Process::State::kOff) {
        result = process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_ERR_NOT_ATTACHED;
    } else if (owed != process.owed.end() && process.observer != nullptr && IsDue(Fault::kSendFails)) {
        process.owed.erase(owed);
        result = OS_MSG_ERR_NO_MEMORY;
        Reached("reply: not sent");
    } else if (owed != process.owed.end()) {
        Answer(owed->second.request, OS_MSG_OK, CopyOf(reply));
        process.owed.erase(owed);
        result = OS_MSG_OK;
    } else {
        Reached("bus: reply to a sender that left");
    }
    Note({"replies ", result}, View(reply));
    if (Observer* const observer = TheObserver()) {
        observer->OnReply(*Self(), reply, result);
    }
    return result;
}

uint32_t OsMsgSynDeferResp(const TagMsgBlock* msg) {
    const InPlatform platform;
    Process& process = CurrentProcess();
    const auto owed = process.owed.find(kivo::TokenOf(*msg));
    if (owed == process.owed.end()) {
        return OS_MSG_ERR_NO_REQUEST;
    }
    owed->second.deferred = true;
    return OS_MSG_OK;
}

uint32_t OsMsgBroadcastEvent(const OsMsgEvent* event, uint32_t scope) {
    const InPlatform platform;
    Point();
    if (event == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    const uint32_t result = BroadcastEvent(*event, scope);
    const BytesView data = ViewOf(event->data, event->dataLen);
    Note({"event ", event->eventId, " ", result}, View(data));
    if (Observer* const observer = TheObserver()) {
        observer->OnEvent(*Self(), event->eventId, data, result);
    }
    return result;
}

uint32_t OsMsgSubscribeEvent(const OsMsgSubscription* subscriptions, uint32_t count, uint32_t flags) {
    const InPlatform platform;
    Point();
    if (subscriptions == nullptr || count == 0 || flags != 0) {
        return OS_MSG_ERR_PARAM;
    }
    const uint32_t result = Subscribe(CurrentProcess(), {subscriptions, count});
    Note({"subscribes to ", subscriptions->eventId, " ", result});
    if (Observer* const observer = TheObserver()) {
        observer->OnSubscribe(*Self(), subscriptions->eventId, result);
    }
    return result;
}

uint32_t OsProcAttach(const char* procName) {
    const InPlatform platform;
    Point();
    Process& process = CurrentProcess();
    const uint32_t result = MayAttach(process, procName);
    if (result == OS_MSG_OK) {
        process.busLost = false;
        JoinBus(process, procName);
    }
    return result;
}

void OsProcDetach(void) {
    const InPlatform platform;
    Point();
    Process& process = CurrentProcess();
    if (process.state == Process::State::kOff) {
        return;
    }
    RequestLeave(process);
    JoinTasks(process);
    LeaveBus(process);
}

void OsProcRequestDetach(void) {
    const InPlatform platform;
    RequestLeave(CurrentProcess());
}

uint32_t OsTaskCreate(const OsTaskDescriptor* task) {
    const InPlatform platform;
    Point();
    Process& process = CurrentProcess();
    if (task == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    if (!process.Attached()) {
        return process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_ERR_NOT_ATTACHED;
    }
    if (process.observer == nullptr && IsDue(Fault::kNoThread)) {
        return OS_MSG_ERR_NO_MEMORY;
    }
    const uint32_t result = AddTask(process, *task);
    if (result == OS_MSG_OK) {
        StartTask(process, process.tasks.back());
    }
    return result;
}

uint32_t OsTaskRun(const char* procName, const OsTaskDescriptor* tasks, uint32_t count) {
    const InPlatform platform;
    Point();
    Process& process = CurrentProcess();
    if (tasks == nullptr || count == 0) {
        return OS_MSG_ERR_PARAM;
    }
    if (const uint32_t wrong = MayAttach(process, procName); wrong != OS_MSG_OK) {
        return wrong;
    }
    for (const OsTaskDescriptor& task : std::span(tasks, count)) {
        if (const uint32_t wrong = AddTask(process, task); wrong != OS_MSG_OK) {
            process.tasks.clear();
            return wrong;
        }
    }
    process.busLost = false;
    JoinBus(process, procName);
    for (const auto& task : std::vector(process.tasks)) {
        StartTask(process, task);
    }
    JoinTasks(process);
    const uint32_t result = process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_OK;
    LeaveBus(process);
    return result;
}

uint32_t OsMsgTaskRoutineByName(const char* taskName) {
    const InPlatform platform;
    Point();
    Process& process = CurrentProcess();
    if (taskName == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    if (process.state == Process::State::kOff) {
        return process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_ERR_NOT_ATTACHED;
    }
    const auto task = process.FindTask(taskName);
    return task == nullptr ? OS_MSG_ERR_NO_TASK : RunLoop(process, task);
}

uint64_t OsMsgDroppedCount(const char* taskName) {
    const InPlatform platform;
    const auto task = taskName == nullptr ? nullptr : CurrentProcess().FindTask(taskName);
    return task == nullptr ? 0 : task->dropped;
}

void OsMsgSetLogLevel(uint32_t /*level*/) {}

void OsMsgRegLogFunc(void (* /*log*/)(const char* text)) {}

const char* OsMsgBusAddress(void) {
    return "simulated";
}

void OsProcSetVersion(const char* /*version*/) {}

const char* OsMsgJoinFailure(void) {
    return "";
}
