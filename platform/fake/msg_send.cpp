// Sending messages, to simulated processes and to scripted peers.
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "fake/journal.h"
#include "fake/msg.h"
#include "fake/reset.h"

namespace kivo::fake {

namespace {

using Address = std::pair<std::string, std::string>;  // process and task

std::map<Address, Script>& Scripts() {
    static auto& scripts = *new std::map<Address, Script>;
    return scripts;
}

// A reply as its receiver holds it; the envelope comes first, so that its address is the reply's.
struct Reply {
    TagMsgBlock envelope{};
    Bytes data;
};

TagMsgBlock* MakeReply(const Entry& request, Bytes data) {
    auto reply = std::make_unique<Reply>();
    reply->data = std::move(data);
    reply->envelope.msgId = request.id;
    WriteName(reply->envelope.srcProcName, request.proc);
    WriteName(reply->envelope.srcTaskName, request.task);
    reply->envelope.dataLen = static_cast<uint32_t>(reply->data.size());
    reply->envelope.data = reply->data.empty() ? nullptr : reply->data.data();
    return &reply.release()->envelope;
}

std::string SendingTask() {
    const Thread* self = Scheduler::Self();
    return self == nullptr ? std::string() : self->task;
}

// The envelope as the receiver sees it: what the bus knows of the sender, and what the sender may say.
Delivery MakeDelivery(const Process& sender, const Entry& message, std::shared_ptr<Request> request) {
    Delivery delivery;
    TagMsgBlock& envelope = delivery.envelope;
    envelope.msgType = request != nullptr ? 1 : 0;
    envelope.uid = getuid();
    WriteName(envelope.srcProcName, sender.Attached() ? sender.name : std::string());
    WriteName(envelope.srcTaskName, SendingTask());
    envelope.msgId = message.id;
    WriteName(envelope.dstProcName, message.proc);
    WriteName(envelope.dstTaskName, message.task);
    envelope.param = message.param;
    const std::string replyTask = message.envelope.replyTaskName;
    WriteName(envelope.replyTaskName, replyTask.empty() ? SendingTask() : replyTask);
    envelope.dataLen = static_cast<uint32_t>(message.data.size());
    delivery.data = message.data;
    delivery.request = std::move(request);
    return delivery;
}

// Asks a task of a simulated process.
uint32_t AskTask(Lock& lock, const Entry& message, Process& destination, Task& task, TagMsgBlock** resp) {
    Process& sender = CurrentProcess();
    const auto request = std::make_shared<Request>();
    request->from = &sender;
    request->to = &destination;
    if (!Deliver(lock, destination, task, MakeDelivery(sender, message, request))) {
        return OS_MSG_ERR_QUEUE_FULL;
    }
    AddRequest(request);
    Scheduler& scheduler = Scheduler::Get();
    const bool wasOn = sender.Attached();
    scheduler.WaitFor(lock, "a reply", request.get(), scheduler.Elapsed() + message.timeout,
                      [&] { return request->done || (wasOn && !sender.Attached()); });
    RemoveRequest(request);
    if (!request->done) {
        return wasOn && !sender.Attached() ? OS_MSG_ERR_NOT_ATTACHED : OS_MSG_ERR_TIMEOUT;
    }
    if (request->result == OS_MSG_OK) {
        *resp = MakeReply(message, std::move(request->reply));
    }
    return request->result;
}

// Asks a scripted peer; the script runs without the lock.
uint32_t AskScript(Lock& lock, const Entry& message, const Script& script, TagMsgBlock** resp) {
    lock.unlock();
    Answer answer = script(message);
    lock.lock();
    if (answer.afterMs != 0) {
        Sleep(lock, std::min<uint64_t>(answer.afterMs, message.timeout));
    }
    if (answer.afterMs > message.timeout) {
        return OS_MSG_ERR_TIMEOUT;
    }
    if (answer.code == OS_MSG_OK && !answer.nullResponse) {
        *resp = MakeReply(message, std::move(answer.data));
    }
    return answer.code;
}

uint32_t Ask(Lock& lock, const Entry& message, TagMsgBlock** resp) {
    Process* destination = FindProcess(message.proc);
    if (destination != nullptr) {
        if (const auto task = destination->FindTask(message.task)) {
            return AskTask(lock, message, *destination, *task, resp);
        }
    }
    const auto script = Scripts().find({message.proc, message.task});
    if (script != Scripts().end()) {
        return AskScript(lock, message, Script(script->second), resp);
    }
    const bool known = destination != nullptr || std::ranges::any_of(Scripts(), [&message](const auto& entry) {
                           return entry.first.first == message.proc;
                       });
    return known ? OS_MSG_ERR_NO_TASK : OS_MSG_ERR_ABSENT;
}

}  // namespace

void SetPeer(const std::string& proc, const std::string& task, Script script) {
    const Lock lock = Hold();
    Scripts()[{proc, task}] = std::move(script);
}

void RemovePeer(const std::string& proc, const std::string& task) {
    const Lock lock = Hold();
    Scripts().erase({proc, task});
}

void ResetScripts() {
    Scripts().clear();
}

}  // namespace kivo::fake

using namespace kivo;
using namespace kivo::fake;

uint32_t OsMsgSynSend(const struct TagMsgBlock* msg, struct TagMsgBlock** resp, uint32_t timeoutMs) {
    Lock lock = Hold();
    if (resp != nullptr) {
        *resp = nullptr;
    }
    if (const auto code = Failure(lock, "OsMsgSynSend")) {
        return *code;
    }
    if (msg == nullptr || resp == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    if (const uint32_t wrong = CheckMessage(*msg); wrong != OS_MSG_OK) {
        return wrong;
    }
    if (!MayUseBus(CurrentProcess())) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    Entry message = EntryOf(Kind::kSyncSend, *msg);
    message.timeout = timeoutMs;
    Record(lock, message);
    return Ask(lock, message, resp);
}

void OsMsgSynRespFree(struct TagMsgBlock* resp) {
    if (resp == nullptr) {
        return;
    }
    const Lock lock = Hold();
    RecordCall(lock, "OsMsgSynRespFree");
    delete reinterpret_cast<Reply*>(resp);
}

uint32_t OsMsgAsynSend(const struct TagMsgBlock* msg) {
    Lock lock = Hold();
    if (const auto code = Failure(lock, "OsMsgAsynSend")) {
        return *code;
    }
    if (msg == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    if (const uint32_t wrong = CheckMessage(*msg); wrong != OS_MSG_OK) {
        return wrong;
    }
    const auto& sender = CurrentProcess();
    if (!MayUseBus(sender)) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    const Entry message = EntryOf(Kind::kAsyncSend, *msg);
    Record(lock, message);
    if (auto* destination = FindProcess(message.proc)) {
        if (const auto task = destination->FindTask(message.task)) {
            Deliver(lock, *destination, *task, MakeDelivery(sender, message, nullptr));
        }
    }
    return OS_MSG_OK;
}
