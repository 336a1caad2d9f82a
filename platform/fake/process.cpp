// A process that leaves fails the requests that were sent to it and loses the replies that others owe it.
#include "fake/process.h"

#include <algorithm>
#include <utility>

#include "fake/msg.h"
#include "fake/reset.h"

namespace kivo::fake {

namespace {

struct Processes {
    std::vector<std::unique_ptr<Process>> all;  // the first is the test's own
    std::vector<std::shared_ptr<Request>> requests;
    bool attachRequired{};
};

Processes& The() {
    static Processes& processes = *new Processes;
    return processes;
}

void EndProcess(Process& process) {
    RequestLeave(process);
    LeaveBus(process);
    process.dead = true;
    Scheduler::Get().WakeThreadsOf(process);
}

}  // namespace

std::shared_ptr<Task> Process::FindTask(const std::string& taskName) const {
    const auto task = std::ranges::find(
        tasks, taskName, [](const auto& each) -> const auto& { return each->name; });
    return task == tasks.end() ? nullptr : *task;
}

Process& TestProcess() {
    if (The().all.empty()) {
        The().all.push_back(std::make_unique<Process>());
    }
    return *The().all.front();
}

Process& CurrentProcess() {
    const Thread* self = Scheduler::Self();
    return self == nullptr ? TestProcess() : *self->process;
}

Process* FindProcess(const std::string& name) {
    for (const auto& process : The().all) {
        if (process->state != Process::State::kOff && process->name == name) {
            return process.get();
        }
    }
    return nullptr;
}

std::vector<Process*> AllProcesses() {
    std::vector<Process*> all;
    for (const auto& process : The().all) {
        all.push_back(process.get());
    }
    return all;
}

bool IsLenient(const Process& process) {
    return !The().attachRequired && &process == &TestProcess();
}

bool MayUseBus(const Process& process) {
    return process.Attached() || (process.state == Process::State::kOff && IsLenient(process));
}

void JoinBus(Lock& lock, Process& process, const std::string& name) {
    process.name = name;
    process.state = Process::State::kOn;
    for (Process* subscriber : AllProcesses()) {
        DeliverRestart(lock, *subscriber, name);
    }
}

void RequestLeave(Process& process) {
    if (!process.Attached()) {
        return;
    }
    process.state = Process::State::kLeaving;
    Scheduler& scheduler = Scheduler::Get();
    for (const auto& task : process.tasks) {
        scheduler.Wake(task.get());
    }
    for (const auto& request : The().requests) {
        if (request->from == &process) {
            scheduler.Wake(request.get());
        }
    }
    scheduler.Wake(&process);
}

void LeaveBus(Process& process) {
    process.state = Process::State::kOff;
    process.tasks.clear();
    process.subscriptions.clear();
    process.owed.clear();
    for (const auto& request : The().requests) {
        if (request->to == &process && !request->done) {
            request->done = true;
            request->result = OS_MSG_ERR_DIED;
            Scheduler::Get().Wake(request.get());
        }
    }
    for (const auto& other : The().all) {
        std::erase_if(other->owed, [&process](const auto& owed) { return owed.second.request->from == &process; });
        for (const auto& task : other->tasks) {
            for (Delivery& waiting : task->queue) {
                if (waiting.request != nullptr && waiting.request->from == &process) {
                    waiting.request->senderLeft = true;
                }
            }
        }
    }
}

void AddRequest(const std::shared_ptr<Request>& request) {
    The().requests.push_back(request);
}

void RemoveRequest(const std::shared_ptr<Request>& request) {
    std::erase(The().requests, request);
}

void ResetProcesses() {
    The().all.resize(std::min<size_t>(The().all.size(), 1));
    TestProcess() = {};
    The().requests.clear();
    The().attachRequired = false;
}

void RequireAttach() {
    const Lock lock = Hold();
    The().attachRequired = true;
}

void StartProcess(std::function<void()> body) {
    const Lock lock = Hold();
    The().all.push_back(std::make_unique<Process>());
    Process& process = *The().all.back();
    const uint32_t error = Scheduler::Get().Spawn(process, {}, true, nullptr, [&process, body = std::move(body)] {
        body();
        const Lock ending = Hold();
        EndProcess(process);
    });
    if (error != 0) {
        Die("StartProcess: no thread");
    }
}

void KillProcess(const std::string& procName) {
    const Lock lock = Hold();
    Process* process = FindProcess(procName);
    if (process == nullptr) {
        Die("KillProcess: there is no process " + procName);
    }
    EndProcess(*process);
}

}  // namespace kivo::fake
