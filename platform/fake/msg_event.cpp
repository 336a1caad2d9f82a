// Broadcast events, subscriptions, and the events of process restarts.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "fake/journal.h"
#include "fake/msg.h"

namespace kivo::fake {

namespace {

// An event on its way to those who subscribed to it.
struct Event {
    uint32_t id{};
    std::string proc;
    std::string task;  // empty for a restart
    Bytes data;
    bool restart{};
};

bool IsRestart(const OsMsgSubscription& wanted) {
    return wanted.eventId == OS_MSG_EVENT_PROC_RESTART;
}

// A broadcast with the id of restarts does not count as a restart.
bool IsWanted(const OsMsgSubscription& wanted, const Event& event) {
    return wanted.eventId == event.id && event.proc == wanted.srcProcName && IsRestart(wanted) == event.restart &&
           (event.restart || event.task == wanted.srcTaskName);
}

bool IsSame(const OsMsgSubscription& one, const OsMsgSubscription& other) {
    return one.eventId == other.eventId && std::string_view(one.srcProcName) == other.srcProcName &&
           std::string_view(one.dstTaskName) == other.dstTaskName &&
           (IsRestart(one) || std::string_view(one.srcTaskName) == other.srcTaskName);
}

void DeliverEvent(Lock& lock, Process& subscriber, const Event& event) {
    for (const OsMsgSubscription& wanted : std::vector(subscriber.subscriptions)) {
        const auto task = subscriber.FindTask(wanted.dstTaskName);
        if (task == nullptr || !IsWanted(wanted, event)) {
            continue;
        }
        Delivery delivery;
        delivery.envelope.uid = event.restart ? UINT32_MAX : getuid();  // a restart has no sender
        delivery.envelope.msgId = event.id;
        WriteName(delivery.envelope.srcProcName, event.proc);
        WriteName(delivery.envelope.srcTaskName, event.task);
        WriteName(delivery.envelope.dstProcName, subscriber.name);
        WriteName(delivery.envelope.dstTaskName, task->name);
        WriteName(delivery.envelope.replyTaskName, event.task);
        delivery.envelope.dataLen = static_cast<uint32_t>(event.data.size());
        delivery.data = event.data;
        Deliver(lock, subscriber, *task, std::move(delivery));
    }
}

uint32_t CheckSubscription(const Process& process, const OsMsgSubscription& wanted) {
    const std::string task = ReadName(wanted.dstTaskName, sizeof(wanted.dstTaskName));
    const bool source = IsRestart(wanted) || !ReadName(wanted.srcTaskName, sizeof(wanted.srcTaskName)).empty();
    if (!source || task.empty() || wanted.reserved != 0 ||
        ReadName(wanted.srcProcName, sizeof(wanted.srcProcName)).empty()) {
        return OS_MSG_ERR_PARAM;
    }
    if (!MayUseBus(process)) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    return process.Attached() && process.FindTask(task) == nullptr ? OS_MSG_ERR_NO_TASK : OS_MSG_OK;
}

std::string Describe(const OsMsgSubscription& wanted) {
    const std::string source(wanted.srcTaskName, strnlen(wanted.srcTaskName, sizeof(wanted.srcTaskName)));
    return "OsMsgSubscribeEvent(" + std::to_string(wanted.eventId) + ", " + wanted.srcProcName + ", " + source + ", " +
           wanted.dstTaskName + ")";
}

}  // namespace

void DeliverRestart(Lock& lock, Process& subscriber, const std::string& procName) {
    DeliverEvent(lock, subscriber, {OS_MSG_EVENT_PROC_RESTART, procName, {}, {}, true});
}

}  // namespace kivo::fake

using namespace kivo;
using namespace kivo::fake;

uint32_t OsMsgBroadcastEvent(const struct OsMsgEvent* event, uint32_t scope) {
    Lock lock = Hold();
    if (const auto code = Failure(lock, "OsMsgBroadcastEvent")) {
        return *code;
    }
    if (event == nullptr || scope != 1) {
        return OS_MSG_ERR_PARAM;
    }
    const std::string task = ReadName(event->taskName, sizeof(event->taskName));
    if (task.empty()) {
        return OS_MSG_ERR_PARAM;
    }
    if (const uint32_t wrong = CheckPayload(event->data, event->dataLen); wrong != OS_MSG_OK) {
        return wrong;
    }
    const Process& process = CurrentProcess();
    if (!MayUseBus(process)) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    if (process.Attached() && process.FindTask(task) == nullptr) {
        return OS_MSG_ERR_NO_TASK;
    }
    Entry entry;
    entry.kind = Kind::kBroadcast;
    entry.id = event->eventId;
    entry.param = scope;
    entry.task = task;
    const auto* bytes = static_cast<const unsigned char*>(event->data);
    entry.data.assign(bytes, bytes + event->dataLen);
    Record(lock, entry);
    if (process.Attached()) {
        for (Process* subscriber : AllProcesses()) {
            DeliverEvent(lock, *subscriber, {event->eventId, process.name, task, entry.data, false});
        }
    }
    return OS_MSG_OK;
}

uint32_t OsMsgSubscribeEvent(const struct OsMsgSubscription* subscriptions, uint32_t count, uint32_t flags) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsMsgSubscribeEvent")) {
        return *code;
    }
    if (subscriptions == nullptr || count == 0 || flags != 0) {
        return OS_MSG_ERR_PARAM;
    }
    Process& process = CurrentProcess();
    const std::span<const OsMsgSubscription> all(subscriptions, count);
    for (const OsMsgSubscription& wanted : all) {
        if (const uint32_t wrong = CheckSubscription(process, wanted); wrong != OS_MSG_OK) {
            return wrong;
        }
    }
    for (const OsMsgSubscription& wanted : all) {
        RecordCall(lock, Describe(wanted));
        if (std::ranges::none_of(process.subscriptions,
                                 [&wanted](const auto& known) { return IsSame(known, wanted); })) {
            process.subscriptions.push_back(wanted);
        }
    }
    return OS_MSG_OK;
}
