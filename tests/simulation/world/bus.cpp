// Messages travel as events of the scheduler.
#include "world/bus.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include "common/msg_rules.h"
#include "model/ledger.h"
#include "world/choices.h"
#include "world/events.h"
#include "world/faults.h"
#include "world/journal.h"
#include "world/observer.h"

namespace sim {

namespace {

// A message on its way. One that is held up, as behind another one, is still with its sender, and is lost with it or
// with its receiver.
struct Travelling {
    const Process* from{};
    const Process* to{};  // null: there was none
    std::pair<std::string, std::string> pair;
    Micros arrival{};
    bool isHeld{};
    std::function<void()> lose;
    bool isLost{};
};

struct Bus {
    std::map<std::pair<std::string, std::string>, Micros> arrivals;  // the last one of each pair
    std::vector<std::shared_ptr<Travelling>> travelling;
    std::vector<std::shared_ptr<Request>> requests;  // those that wait
    uint64_t lastToken{};
    uint64_t number{};  // how often it was lost
};

Bus& The() {
    static Bus& bus = *new Bus;
    return bus;
}

// When something arrives that is sent now.
struct Arrival {
    Micros at{};
    bool isHeld{};
};

// At `wanted`, if that is not 0, but not before the pair's last one.
Arrival ArrivalOf(const std::string& from, const std::string& to, Micros wanted = 0) {
    const Micros own = wanted != 0 ? wanted : Now() + Delay();
    Micros& last = The().arrivals[{from, to}];
    const Arrival arrival{std::max(last, own), wanted != 0 || last > own};
    last = arrival.at;
    return arrival;
}

// Carries out `arrive` when a message arrives that is sent now, or `lose` as soon as it is lost. What is on the bus
// itself goes with that.
Micros Travel(const Process& from, const std::string& to, std::function<void()> arrive, std::function<void()> lose) {
    const Arrival arrival = ArrivalOf(from.name, to);
    const auto message = std::make_shared<Travelling>(&from, FindProcess(to), std::pair(from.name, to), arrival.at,
                                                      arrival.isHeld, std::move(lose));
    The().travelling.push_back(message);
    At(arrival.at, [bus = The().number, message, arrive = std::move(arrive)] {
        std::erase(The().travelling, message);
        if (bus == The().number && !message->isLost) {
            arrive();
        }
    });
    return arrival.at;
}

// What it has sent that is held up, and what is for it. What its next stay on the bus sends does not overtake the rest.
void LoseHeld(const Process& process) {
    std::erase_if(The().arrivals, [&process](const auto& entry) {
        return entry.first.first == process.name || entry.first.second == process.name;
    });
    for (const auto& message : std::vector(The().travelling)) {
        if (message->isLost || (message->from != &process && message->to != &process)) {
            continue;
        }
        if (message->isHeld) {
            Reached("bus: message lost with one of its ends");
            message->isLost = true;
            message->lose();
        } else {
            Micros& last = The().arrivals[message->pair];
            last = std::max(last, message->arrival);
        }
    }
}

void NoteDelivery(const char* what, const Delivery& delivery) {
    const TagMsgBlock& envelope = delivery.envelope;
    Note({what, envelope.msgId, " from ", envelope.srcProcName, ":", envelope.srcTaskName, " to ", envelope.dstProcName,
          ":", envelope.dstTaskName, " param ", envelope.param},
         {reinterpret_cast<const char*>(delivery.data.data()), delivery.data.size()});
}

// The news of a restart is never lost: a queue holds it once for each process.
bool IsRestart(const Delivery& delivery) {
    return delivery.sender == 0;
}

// Puts a message into the queue; false when that is full.
bool Enqueue(Task& task, Delivery delivery) {
    const auto waits = [&task](const auto& isSuch) { return std::ranges::any_of(task.queue, isSuch); };
    const std::string_view name = delivery.envelope.srcProcName;
    if (IsRestart(delivery) &&
        waits([name](const Delivery& other) { return IsRestart(other) && name == other.envelope.srcProcName; })) {
        return true;
    }
    const bool senderWaits = waits([&delivery](const Delivery& other) { return other.sender == delivery.sender; });
    if (IsRestart(delivery) || (kivo::HasRoom(task.queue.size(), 1, task.queueDepth, senderWaits) &&
                                !(task.name == "iom_srv_task" && IsDue(Fault::kQueueFull)))) {
        task.queue.push_back(std::move(delivery));
        Wake(&task);
        return true;
    }
    NoteDelivery("queue full: ", delivery);
    if (delivery.event != 0) {
        LoseEvent(*FindProcess(delivery.envelope.dstProcName), delivery.event);
        Reached("event: lost, queue full");
    }
    if (delivery.request == nullptr) {
        ++task.dropped;
        Reached("bus: message lost, queue full");
    } else {
        Reached("bus: request refused, queue full");
    }
    return false;
}

void Arrive(const std::string& to, Delivery delivery) {
    Process* const process = FindProcess(to);
    const auto task = process == nullptr ? nullptr : process->FindTask(delivery.envelope.dstTaskName);
    const auto request = delivery.request;
    if (task == nullptr) {
        if (request != nullptr) {
            if (to == "ominspect") {
                Reached("bus: server absent");
            }
            Answer(request, process == nullptr ? OS_MSG_ERR_ABSENT : OS_MSG_ERR_NO_TASK, {});
        } else if (process == nullptr && delivery.envelope.msgId <= 1) {
            Reached("result: sent to one who left");
        }
        return;
    }
    if (request != nullptr) {
        request->to = process;
    }
    if (!Enqueue(*task, std::move(delivery)) && request != nullptr) {
        Answer(request, OS_MSG_ERR_QUEUE_FULL, {});
    }
}

// Hands one message to the handler; what it neither answered nor deferred is forgotten afterwards.
void Handle(Process& process, const Task& task, Delivery delivery) {
    TagMsgBlock& envelope = delivery.envelope;
    envelope.data = delivery.data.empty() ? nullptr : delivery.data.data();
    const uint64_t token = ++The().lastToken;
    if (delivery.request != nullptr) {
        kivo::SetToken(envelope, token);
        if (!delivery.request->senderLeft) {
            process.owed.emplace(token, OwedReply{delivery.request});
        }
    }
    NoteDelivery("handle ", delivery);
    if (process.kind == "requester" && delivery.request == nullptr && envelope.msgId <= 1 &&
        std::string_view(envelope.srcProcName) == "ominspect") {
        model::TheLedger().GetMessage(process.name, envelope.msgId, delivery.data);
    }
    if (Observer* const observer = TheObserver()) {
        observer->OnHandler(*Self(), envelope, delivery.data);
    }
    uint32_t result = 0;
    {
        const InProcess process_;
        result = task.handler(&envelope);
    }
    if (Observer* const observer = TheObserver()) {
        observer->OnHandled(*Self(), result);
    }
    if (delivery.event != 0) {
        CheckTold(process, delivery.event);
    }
    const auto owed = process.owed.find(token);
    if (owed != process.owed.end() && !owed->second.deferred) {
        process.owed.erase(owed);
    }
}

bool IsRestart(const OsMsgSubscription& wanted) {
    return wanted.eventId == OS_MSG_EVENT_PROC_RESTART;
}

// An event goes to the very process that subscribed to it.
void SendEvent(const Process& from, Process& subscriber, const OsMsgSubscription& wanted, uint32_t id,
               const std::string& task, const Bytes& data, uint64_t number = 0) {
    Delivery delivery;
    delivery.sender = IsRestart(wanted) ? 0 : from.Connection();
    delivery.event = GetsEvents(from.name, wanted.dstTaskName) ? number : 0;
    delivery.envelope.uid = IsRestart(wanted) ? UINT32_MAX : 1000;
    delivery.envelope.msgId = id;
    kivo::WriteName(delivery.envelope.srcProcName, from.name);
    kivo::WriteName(delivery.envelope.srcTaskName, task);
    kivo::WriteName(delivery.envelope.dstProcName, subscriber.name);
    kivo::WriteName(delivery.envelope.dstTaskName, wanted.dstTaskName);
    kivo::WriteName(delivery.envelope.replyTaskName, task);
    delivery.envelope.dataLen = static_cast<uint32_t>(data.size());
    delivery.data = data;
    const auto isThere = [&subscriber, joins = subscriber.joins] {
        return subscriber.Attached() && subscriber.joins == joins;
    };
    const auto lose = [isThere, &subscriber, event = delivery.event] {
        if (isThere()) {
            LoseEvent(subscriber, event);
        }
    };
    const auto arrive = [isThere, &subscriber, delivery = std::move(delivery)] {
        if (isThere()) {
            Arrive(subscriber.name, delivery);
        }
    };
    (void)Travel(from, subscriber.name, arrive, lose);
}

void ForEachSubscription(const std::string& from, uint32_t id, const std::string& task,
                         const std::function<void(Process&, const OsMsgSubscription&)>& use) {
    ForEachProcess([&](Process& subscriber) {
        for (const OsMsgSubscription& wanted : subscriber.subscriptions) {
            const bool restart = id == OS_MSG_EVENT_PROC_RESTART && task.empty();
            if (wanted.eventId == id && from == wanted.srcProcName && IsRestart(wanted) == restart &&
                (restart || task == wanted.srcTaskName)) {
                use(subscriber, wanted);
            }
        }
    });
}

}  // namespace

void Send(Process& from, const std::string& to, Delivery delivery) {
    delivery.sender = from.Connection();
    const auto lose = [request = delivery.request] {
        if (request != nullptr) {
            Answer(request, OS_MSG_ERR_DIED, {});
        }
    };
    const auto arrive = [to, delivery = std::move(delivery)] { Arrive(to, delivery); };
    const Micros arrival = Travel(from, to, arrive, lose);
    Self()->lastArrival = arrival;
    from.lastArrival = std::max(from.lastArrival, arrival);
}

void AwaitArrivals(Process& process) {
    if (!Self()->locks.empty()) {
        Violation("waits for the bus with a lock held");
    }
    // At that very time messages may arrive after those who wait for it.
    WaitFor("the bus", &process, process.lastArrival + 1, [&process] { return !process.Attached(); });
}

void Broadcast(Process& from, const std::string& task, uint32_t id, const Bytes& data) {
    const uint64_t number = NoteEvent(from.name, task, id, data);
    ForEachSubscription(from.name, id, task, [&](Process& subscriber, const OsMsgSubscription& wanted) {
        SendEvent(from, subscriber, wanted, id, task, data, number);
    });
}

void Ask(const std::shared_ptr<Request>& request, Delivery delivery) {
    Process& sender = *request->from;
    delivery.request = request;
    The().requests.push_back(request);
    Send(sender, request->toName, std::move(delivery));
    WaitFor("a reply", request.get(), request->deadline, [&] { return request->done || !sender.Attached(); });
    std::erase(The().requests, request);
    if (!request->done) {
        request->result = sender.Attached() ? OS_MSG_ERR_TIMEOUT : OS_MSG_ERR_NOT_ATTACHED;
        if (sender.busLost) {
            request->result = OS_MSG_ERR_NO_BUS;
        }
        request->decided = true;
        Reached("bus: request timed out");
    }
}

void Answer(const std::shared_ptr<Request>& request, uint32_t result, Bytes reply) {
    if (request->decided) {
        return;
    }
    request->decided = true;
    Micros wanted = 0;
    if (request->deadline > Now() && IsDue(Fault::kTimeLimit)) {
        wanted = request->deadline - 1 + Pick(3);
    }
    // An error is the bus's own word.
    const Arrival arrival = result == OS_MSG_OK ? ArrivalOf(request->toName, request->fromName, wanted)
                                                : Arrival{wanted != 0 ? wanted : Now() + Delay()};
    request->isHeld = arrival.isHeld;
    At(arrival.at, [request, number = ++request->answers, result, reply = std::move(reply)] {
        if (request->answers != number) {
            return;
        }
        request->done = true;
        request->result = result;
        request->reply = reply;
        Wake(request.get());
    });
}

void JoinBus(Process& process, const std::string& name) {
    process.name = name;
    process.state = Process::State::kOn;
    ++process.joins;
    Note({"joins the bus as ", name});
    ForEachSubscription(name, OS_MSG_EVENT_PROC_RESTART, "", [&](Process& other, const OsMsgSubscription& wanted) {
        SendEvent(process, other, wanted, OS_MSG_EVENT_PROC_RESTART, "", {});
    });
}

void RequestLeave(Process& process) {
    if (!process.Attached()) {
        return;
    }
    process.state = Process::State::kLeaving;
    for (const auto& task : process.tasks) {
        Wake(task.get());
    }
    for (const auto& request : The().requests) {
        if (request->from == &process) {
            Wake(request.get());
        }
    }
    Wake(&process);
}

void LeaveBus(Process& process) {
    process.state = Process::State::kOff;
    process.tasks.clear();
    process.subscriptions.clear();
    process.owed.clear();
    process.items.clear();
    process.untold.clear();
    process.lastArrival = 0;
    LoseHeld(process);
    for (const auto& request : std::vector(The().requests)) {
        if (request->to == &process) {
            request->decided = request->decided && !request->isHeld;
            Answer(request, OS_MSG_ERR_DIED, {});
        }
        if (request->from == &process) {
            request->senderLeft = true;
        }
    }
    if (process.dead) {
        std::erase_if(The().requests, [&process](const auto& request) { return request->from == &process; });
    }
    ForEachProcess([&process](Process& other) {
        std::erase_if(other.owed, [&process](const auto& owed) { return owed.second.request->from == &process; });
    });
}

void LoseBus() {
    ForEachProcess([](Process& process) {
        if (process.state != Process::State::kOff) {
            process.busLost = true;
            RequestLeave(process);
        }
    });
    The().arrivals.clear();
    ++The().number;
}

uint32_t RunLoop(Process& process, const std::shared_ptr<Task>& task) {
    if (task->looping) {
        return OS_MSG_ERR_NAME_TAKEN;
    }
    task->looping = true;
    Thread& me = *Self();
    const std::string formerTask = std::exchange(me.task, task->name);
    for (;;) {
        if (!me.locks.empty()) {
            Violation("waits for messages with a lock held");
        }
        WaitFor("messages", task.get(), kNever, [&] { return !process.Attached() || !task->queue.empty(); });
        if (!process.Attached()) {
            break;
        }
        Delivery delivery = std::move(task->queue.front());
        task->queue.pop_front();
        Handle(process, *task, std::move(delivery));
    }
    task->looping = false;
    me.task = formerTask;
    return process.busLost ? OS_MSG_ERR_NO_BUS : OS_MSG_OK;
}

}  // namespace sim
