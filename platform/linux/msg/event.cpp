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

// How long the daemon may take to note that events are to be passed on.
constexpr std::chrono::seconds kMatchTimeout{25};

using SourceKey = std::pair<std::string, std::string>;
using Subscriber = std::pair<uint32_t, std::shared_ptr<Task>>;

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
    if (sd_bus_message_new_method_call(process.bus.get(), &raw, BusNameOf(proc).c_str(), kProcessPath,
                                       kPublisherInterface, "Subscribe") < 0) {
        return nullptr;
    }
    MessagePtr call(raw);
    return sd_bus_message_set_auto_start(raw, 0) >= 0 ? std::move(call) : nullptr;
}

// Asks the daemon to pass on the events of a task.
uint32_t AskDaemon(Process& process, const SourceKey& key, AwaitedReply& answer) {
    const std::string rule = "type='signal',sender='" + BusNameOf(key.first) + "',path='" + PathOf(key.second) +
                             "',interface='" + kInterface + "',member='Event'";
    return answer.Send(MakeQuestion(process.bus.get(), "AddMatch", rule.c_str()));
}

uint32_t AwaitMatch(Process& process, Reader::Lock& lock, const SourceKey& key, AwaitedReply& answer) {
    const uint32_t result = answer.Wait(lock, Reader::Clock::now() + kMatchTimeout);
    const auto source = process.events.find(key);
    if (result == OS_MSG_OK && source != process.events.end()) {
        source->second.matched = true;
        process.reader.HurryUp();
    }
    return result;
}

// Waits until the process counts this one among its subscribers. One that is not there is asked when it appears; one
// that hangs finds the question when it goes on; and one that does not know the question sends its events to everybody.
uint32_t AwaitCount(Process& process, Reader::Lock& lock, const SourceKey& key, AwaitedReply& answer) {
    const uint32_t result = answer.Wait(lock, Reader::Clock::now() + kAskTimeout);
    if (result == OS_MSG_ERR_NO_MEMORY || result == OS_MSG_ERR_DENIED) {
        return result;
    }
    const auto source = process.events.find(key);
    if (source != process.events.end()) {
        source->second.asked = true;
    }
    return process.CheckUsable();
}

// The questions to the daemon and to the process are on their way at the same time, in this order.
uint32_t AskForEvents(Process& process, Reader::Lock& lock, const SourceKey& key, const EventSource& source) {
    AwaitedReply match(process, "");
    AwaitedReply count(process, key.first);
    const bool askDaemon = !source.matched;
    const bool askProcess = !source.asked && !process.peers.OwnerOf(key.first).empty();
    uint32_t result = OS_MSG_OK;
    if (askDaemon) {
        result = AskDaemon(process, key, match);
    }
    if (result == OS_MSG_OK && askProcess) {
        result = count.Send(MakeSubscribe(process, key.first));
    }
    if (result == OS_MSG_OK && askDaemon) {
        result = AwaitMatch(process, lock, key, match);
    }
    return result == OS_MSG_OK && askProcess ? AwaitCount(process, lock, key, count) : result;
}

// Another thread may subscribe to the same source, or leave the bus, while this one waits: sources are looked up anew.
void Unsubscribe(Process& process, const SourceKey& key, const Subscriber& subscriber) {
    const auto source = process.events.find(key);
    if (source == process.events.end()) {
        return;
    }
    std::erase(source->second.subscribers, subscriber);
    if (source->second.subscribers.empty() && !source->second.matched) {
        process.events.erase(source);
    }
}

uint32_t SubscribeToSource(Process& process, Reader::Lock& lock, const SourceKey& key, const Subscriber& subscriber) {
    EventSource& source = process.events[key];
    const bool isNew =
        std::find(source.subscribers.begin(), source.subscribers.end(), subscriber) == source.subscribers.end();
    if (isNew) {
        source.subscribers.push_back(subscriber);
    }
    const uint32_t result = AskForEvents(process, lock, key, source);
    if (result != OS_MSG_OK && isNew) {
        Unsubscribe(process, key, subscriber);
    }
    return result;
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
    return SubscribeToSource(process, lock, {proc, task}, {subscription.eventId, receiver});
}

// What an event tells its receivers, beside the receiver.
struct Arrival {
    uint32_t id;
    const std::string& proc;
    const std::string& task;
    const void* data;
    size_t size;
    const char* connection;
};

// One receiver without memory does not cost the others the event.
void Give(Task& receiver, const Arrival& event) {
    try {
        auto message = std::make_unique<Incoming>();
        TagMsgBlock& block = message->block;
        block.msgId = event.id;
        WriteName(block.srcProcName, event.proc);
        WriteName(block.srcTaskName, event.task);
        WriteName(block.replyTaskName, event.task);
        SetPayload(*message, event.data, event.size);
        receiver.Deliver(std::move(message), event.connection);
    } catch (const std::bad_alloc&) {
        receiver.CountLoss();
        Log(kLogWarning, "no memory: task %s loses event %u", receiver.name.c_str(), event.id);
    }
}

}  // namespace

void kivo::msg::DeliverEvent(Process& process, sd_bus_message* signal) {
    uint32_t id = 0;
    const void* data = nullptr;
    size_t size = 0;
    if (sd_bus_message_read(signal, "u", &id) < 0 ||
        sd_bus_message_read_array(signal, SD_BUS_TYPE_BYTE, &data, &size) < 0 || size > OS_MSG_MAX_PAYLOAD) {
        return;
    }
    const char* connection = sd_bus_message_get_sender(signal);
    const char* path = sd_bus_message_get_path(signal);
    if (connection == nullptr || path == nullptr) {
        return;
    }
    // Signals come under the sender's unique name, so the process is looked up by that.
    const std::string task = TaskNameOf(path);
    for (const std::string& proc : process.peers.NamesOf(connection)) {
        const auto source = process.events.find({proc, task});
        if (source == process.events.end()) {
            continue;
        }
        for (const auto& [eventId, receiver] : source->second.subscribers) {
            if (eventId == id) {
                Give(*receiver, {id, proc, task, data, size, connection});
            }
        }
    }
}

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
        process.unsent.Send(process.bus.get(), call.get(), 0) < 0) {
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
            result = process.unsent.Send(process.bus.get(), raw, event->dataLen);
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
