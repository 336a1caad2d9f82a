// Broadcast events and subscriptions; restart events are delivered by process.cpp.
#include <algorithm>
#include <new>
#include <utility>

#include "common/msg_rules.h"
#include "msg/log.h"
#include "msg/names.h"
#include "msg/process.h"

using namespace kivo;
using namespace kivo::msg;

namespace {

// How long a process may take to note a subscriber; the question lasts longer.
constexpr std::chrono::seconds kAskTimeout{2};

void Deliver(Process& process, sd_bus_message* signal) {
    uint32_t id = 0;
    const void* data = nullptr;
    size_t size = 0;
    if (sd_bus_message_read(signal, "u", &id) < 0) {
        return;
    }
    if (sd_bus_message_read_array(signal, SD_BUS_TYPE_BYTE, &data, &size) < 0 || size > OS_MSG_MAX_PAYLOAD) {
        return;
    }
    const char* connection = sd_bus_message_get_sender(signal);
    const char* path = sd_bus_message_get_path(signal);
    if (connection == nullptr || path == nullptr) {
        return;
    }
    // Signals come under the sender's unique name, so the process is looked up by that.
    const std::string proc = process.peers.ProcessOf(connection);
    const std::string task = TaskNameOf(path);
    const auto source = process.events.find({proc, task});
    if (source == process.events.end()) {
        return;
    }
    for (const auto& [eventId, receiver] : source->second.subscribers) {
        if (eventId != id) {
            continue;
        }
        auto message = std::make_unique<Incoming>();
        TagMsgBlock& block = message->block;
        block.msgId = id;
        WriteName(block.srcProcName, proc);
        WriteName(block.srcTaskName, task);
        WriteName(block.replyTaskName, task);
        SetPayload(*message, data, size);
        receiver->Deliver(std::move(message), connection);
    }
}

int OnEvent(sd_bus_message* signal, void* userdata, sd_bus_error* /*error*/) {
    auto& process = TheProcess();
    // Several matches may pass the same signal; only the one of its source delivers it.
    const auto& key = *static_cast<const std::pair<std::string, std::string>*>(userdata);
    const char* connection = sd_bus_message_get_sender(signal);
    if (connection == nullptr || process.peers.ProcessOf(connection) != key.first) {
        return 0;
    }
    try {
        Deliver(process, signal);
    } catch (const std::bad_alloc&) {
        Log(kLogWarning, "no memory: an event of process %s is lost", key.first.c_str());
    }
    return 0;
}

uint32_t SubscribeToRestart(Process& process, const std::string& proc, const std::shared_ptr<Task>& receiver) {
    auto& watchers = process.restartWatchers[proc];
    if (std::find(watchers.begin(), watchers.end(), receiver) == watchers.end()) {
        watchers.push_back(receiver);
    }
    return OS_MSG_OK;
}

// The call that asks a process for its events; null when there is no memory.
MessagePtr MakeSubscribe(Process& process, const std::string& proc) {
    sd_bus_message* raw = nullptr;
    if (sd_bus_message_new_method_call(process.bus.get(), &raw, BusNameOf(proc).c_str(), kPublisherPath,
                                       kPublisherInterface, "Subscribe") < 0) {
        return nullptr;
    }
    MessagePtr call(raw);
    return sd_bus_message_set_auto_start(raw, 0) >= 0 ? std::move(call) : nullptr;
}

// Waits until the process counts this one among its subscribers. One that is not there is asked when it appears; one
// that hangs finds the question when it goes on; and one that does not know the question sends its events to everybody.
uint32_t AskForEvents(Process& process, Reader::Lock& lock, const std::string& proc, EventSource& source) {
    if (source.asked || process.peers.OwnerOf(proc).empty()) {
        return OS_MSG_OK;
    }
    AwaitedReply answer{Waiter::OfThisThread(), proc, {}};
    MessagePtr call = MakeSubscribe(process, proc);
    if (!answer.waiter.Valid() || !call) {
        return OS_MSG_ERR_NO_MEMORY;
    }
    const uint32_t result = CallAndWait(process, lock, answer, std::move(call), Reader::Clock::now() + kAskTimeout);
    OsMsgSynRespFree(answer.reply);
    if (result == OS_MSG_ERR_NO_MEMORY || result == OS_MSG_ERR_DENIED) {
        return result;
    }
    source.asked = true;
    return process.CheckUsable();
}

uint32_t SubscribeToSource(Process& process, Reader::Lock& lock, const std::string& proc, const std::string& task,
                           uint32_t eventId, const std::shared_ptr<Task>& receiver) {
    const auto entry = process.events.try_emplace({proc, task}).first;
    EventSource& source = entry->second;
    if (!source.match) {
        sd_bus_slot* slot = nullptr;
        const int matched =
            sd_bus_match_signal(process.bus.get(), &slot, BusNameOf(proc).c_str(), PathOf(task).c_str(), kInterface,
                                "Event", OnEvent, const_cast<std::pair<std::string, std::string>*>(&entry->first));
        if (matched < 0) {
            process.events.erase(entry);
            return ResultOf(matched);
        }
        source.match.reset(slot);
        process.reader.HurryUp();
        process.reader.Kick();  // waiting for the daemon's answer may have read other messages
    }
    const std::pair subscriber{eventId, receiver};
    auto& all = source.subscribers;
    if (std::find(all.begin(), all.end(), subscriber) == all.end()) {
        all.push_back(subscriber);
    }
    return AskForEvents(process, lock, proc, source);
}

uint32_t Subscribe(Process& process, Reader::Lock& lock, const OsMsgSubscription& subscription) {
    const std::string proc = ReadName(subscription.srcProcName, sizeof subscription.srcProcName);
    const std::string task = ReadName(subscription.srcTaskName, sizeof subscription.srcTaskName);
    const std::shared_ptr<Task> receiver =
        process.FindTask(ReadName(subscription.dstTaskName, sizeof subscription.dstTaskName));
    if (proc.empty() || subscription.reserved != 0) {
        return OS_MSG_ERR_PARAM;
    }
    if (!receiver) {
        return OS_MSG_ERR_NO_TASK;
    }
    if (subscription.eventId == OS_MSG_EVENT_PROC_RESTART) {
        return SubscribeToRestart(process, proc, receiver);
    }
    if (task.empty()) {
        return OS_MSG_ERR_PARAM;
    }
    return SubscribeToSource(process, lock, proc, task, subscription.eventId, receiver);
}

}  // namespace

void kivo::msg::SubscribeAgain(Process& process, const std::string& procName) {
    bool wanted = false;
    for (auto& [key, source] : process.events) {
        if (key.first == procName) {
            wanted = true;
            source.asked = false;  // whether this question arrives is not known, so the next subscription asks again
        }
    }
    if (!wanted) {
        return;
    }
    const MessagePtr call = MakeSubscribe(process, procName);
    if (!call || sd_bus_message_set_expect_reply(call.get(), 0) < 0 ||
        sd_bus_send(process.bus.get(), call.get(), nullptr) < 0) {
        throw std::bad_alloc();
    }
}

uint32_t OsMsgBroadcastEvent(const struct OsMsgEvent* event, uint32_t scope) {
    return Guarded([&] {
        if (event == nullptr || scope != 1) {
            return OS_MSG_ERR_PARAM;
        }
        const std::string task = ReadName(event->taskName, sizeof event->taskName);
        if (task.empty()) {
            return OS_MSG_ERR_PARAM;
        }
        if (const uint32_t wrong = CheckPayload(event->data, event->dataLen); wrong != OS_MSG_OK) {
            return wrong;
        }
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK) {
            return unusable;
        }
        if (!process.FindTask(task)) {
            return OS_MSG_ERR_NO_TASK;
        }
        if (!process.subscribers.Wanted()) {
            return OS_MSG_OK;
        }
        sd_bus_message* raw = nullptr;
        int result = sd_bus_message_new_signal(process.bus.get(), &raw, PathOf(task).c_str(), kInterface, "Event");
        if (result < 0) {
            return ResultOf(result);
        }
        const MessagePtr signal(raw);
        result = sd_bus_message_append(raw, "u", event->eventId);
        if (result >= 0) {
            result = sd_bus_message_append_array(raw, SD_BUS_TYPE_BYTE, event->data, event->dataLen);
        }
        if (result >= 0) {
            result = sd_bus_send(process.bus.get(), raw, nullptr);
        }
        if (result < 0) {
            return ResultOf(result);
        }
        process.KickIfUnsent();
        return OS_MSG_OK;
    });
}

uint32_t OsMsgSubscribeEvent(const struct OsMsgSubscription* subscriptions, uint32_t count, uint32_t flags) {
    return Guarded([&] {
        if (subscriptions == nullptr || count == 0 || flags != 0) {
            return OS_MSG_ERR_PARAM;
        }
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        uint32_t result = process.CheckUsable();
        for (uint32_t i = 0; result == OS_MSG_OK && i < count; ++i) {
            result = Subscribe(process, lock, subscriptions[i]);
        }
        return result;
    });
}
