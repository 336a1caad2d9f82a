// Looks at every message before sd-bus does, which trusts senders that it should not.
#include <algorithm>
#include <memory>
#include <new>

#include "msg/log.h"
#include "msg/names.h"
#include "msg/process.h"

namespace kivo::msg {

namespace {

// Which tasks an event was for is not known without memory: all that have subscribed to any count it, so that none
// believes that it has seen everything.
void CountLossEverywhere(Process& process) {
    const auto hasSubscribed = [&process](const std::shared_ptr<Task>& task) {
        return std::ranges::any_of(process.events, [&task](const auto& source) {
            return std::ranges::any_of(source.second.subscribers,
                                       [&task](const auto& subscriber) { return subscriber.second == task; });
        });
    };
    for (const auto& [name, task] : process.tasks) {
        if (hasSubscribed(task)) {
            task->CountLoss();
        }
    }
    Log(kLogWarning, "no memory: an event is lost");
}

void TakeEvent(Process& process, sd_bus_message* signal) {
    try {
        DeliverEvent(process, signal);
    } catch (const std::bad_alloc&) {
        CountLossEverywhere(process);
    }
}

// A call whose answer could not be sent is passed over: its sender waits for its own time limit.
int OnMessage(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    auto& process = *static_cast<Process*>(userdata);
    process.peers.CatchUp();
    if (process.daemon.TakeAnswer(message) || process.peers.TakeChange(message)) {
        return 1;
    }
    if (sd_bus_message_is_signal(message, kInterface, "Event") > 0) {
        TakeEvent(process, message);
        return 1;
    }
    if (AwaitedReply::Take(process, message)) {
        return 1;
    }
    return process.unsent.IsFull() && sd_bus_message_get_expect_reply(message) > 0 ? 1 : 0;
}

}  // namespace

int StartDispatch(Process& process) {
    sd_bus_slot* slot = nullptr;
    const int added = sd_bus_add_filter(process.bus.get(), &slot, OnMessage, &process);
    process.dispatch.reset(slot);
    return added;
}

}  // namespace kivo::msg
