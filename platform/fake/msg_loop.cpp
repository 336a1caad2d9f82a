// Queues and message loops of tasks.
#include <algorithm>
#include <string_view>
#include <utility>

#include "fake/msg.h"

namespace kivo::fake {

namespace {

uint64_t g_lastToken = 0;

// Hands one message to the handler; what it neither answered nor deferred is forgotten afterwards.
void Handle(Lock& lock, Process& process, const Task& task, Delivery delivery) {
    TagMsgBlock& envelope = delivery.envelope;
    envelope.data = delivery.data.empty() ? nullptr : delivery.data.data();
    const uint64_t token = ++g_lastToken;
    if (delivery.request != nullptr) {
        SetToken(envelope, token);
        if (!delivery.request->senderLeft) {
            process.owed.emplace(token, OwedReply{delivery.request});
        }
    }
    lock.unlock();
    const uint32_t result = task.handler(&envelope);
    lock.lock();
    const auto owed = process.owed.find(token);
    if (owed != process.owed.end() && !owed->second.deferred) {
        process.owed.erase(owed);
    }
    if (result != 0) {
        LogLine(lock, process, 3,
                "task " + task.name + ": message " + std::to_string(envelope.msgId) + " from " + envelope.srcProcName +
                    " gave result " + std::to_string(result));
    }
}

}  // namespace

bool Deliver(Lock& lock, Process& process, Task& task, Delivery delivery) {
    const bool senderWaits = std::any_of(task.queue.begin(), task.queue.end(), [&delivery](const Delivery& other) {
        return std::string_view(other.envelope.srcProcName) == delivery.envelope.srcProcName;
    });
    if (HasRoom(task.queue.size(), 1, task.queueDepth, senderWaits)) {
        task.queue.push_back(std::move(delivery));
        Scheduler::Get().Wake(&task);
        return true;
    }
    if (delivery.request == nullptr) {
        ++task.dropped;
        LogLine(lock, process, 2,
                "task " + task.name + ": queue full, lost message " + std::to_string(delivery.envelope.msgId) +
                    " from " + delivery.envelope.srcProcName);
    }
    return false;
}

uint32_t RunLoop(Lock& lock, Process& process, const std::shared_ptr<Task>& task) {
    if (task->looping) {
        return OS_MSG_ERR_NAME_TAKEN;
    }
    task->looping = true;
    Thread* self = Scheduler::Self();
    const std::string formerTask = self == nullptr ? std::string() : std::exchange(self->task, task->name);
    Scheduler& scheduler = Scheduler::Get();
    for (;;) {
        scheduler.WaitFor(lock, "messages", task.get(), Scheduler::kNever,
                          [&] { return !process.Attached() || !task->queue.empty(); });
        if (!process.Attached()) {
            break;
        }
        Delivery delivery = std::move(task->queue.front());
        task->queue.pop_front();
        Handle(lock, process, *task, std::move(delivery));
    }
    task->looping = false;
    if (self != nullptr) {
        self->task = formerTask;
    }
    return process.dead ? OS_MSG_ERR_NO_BUS : OS_MSG_OK;
}

}  // namespace kivo::fake
