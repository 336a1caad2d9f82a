// Joining and leaving the bus, and the task runner.
#include <algorithm>
#include <span>
#include <string>
#include <utility>

#include "fake/journal.h"
#include "fake/msg.h"

namespace kivo::fake {

namespace {

std::shared_ptr<Task> MakeTask(const OsTaskDescriptor& descriptor) {
    auto task = std::make_shared<Task>();
    task->name = ReadName(descriptor.name, sizeof(descriptor.name));
    task->queueDepth = descriptor.queueDepth;
    task->handler = descriptor.handler;
    task->entry = descriptor.entry;
    return task;
}

// OS_MSG_OK or what is wrong; the task has no thread yet.
uint32_t AddTask(Process& process, const OsTaskDescriptor& descriptor) {
    if (const uint32_t wrong = CheckTask(descriptor); wrong != OS_MSG_OK) {
        return wrong;
    }
    std::shared_ptr<Task> task = MakeTask(descriptor);
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
        Lock lock = Hold();
        RunLoop(lock, process, task);
    }
    const Lock lock = Hold();
    task->ended = true;
    Scheduler::Get().Wake(&process);
}

uint32_t StartTask(Process& process, const std::shared_ptr<Task>& task) {
    const uint32_t error =
        Scheduler::Get().Spawn(process, task->name, true, nullptr, [&process, task] { RunTask(process, task); });
    return error == 0 ? OS_MSG_OK : OS_MSG_ERR_NO_MEMORY;
}

void JoinTasks(Lock& lock, Process& process) {
    Scheduler::Get().WaitFor(lock, "its tasks to end", &process, Scheduler::kNever, [&process] {
        return std::ranges::all_of(process.tasks, [](const auto& task) { return task->ended; });
    });
}

uint32_t MayAttach(const Process& process, const std::string& name) {
    if (name.empty()) {
        return OS_MSG_ERR_PARAM;
    }
    if (process.dead) {
        return OS_MSG_ERR_NO_BUS;
    }
    if (process.state != Process::State::kOff) {
        return OS_MSG_ERR_ATTACHED;
    }
    return FindProcess(name) != nullptr ? OS_MSG_ERR_NAME_TAKEN : OS_MSG_OK;
}

std::string AttachName(const char* procName) {
    return procName != nullptr && IsValidName(procName) ? procName : "";
}

uint32_t RunTasks(Lock& lock, Process& process, const std::string& name, std::span<const OsTaskDescriptor> tasks) {
    for (const OsTaskDescriptor& task : tasks) {
        const uint32_t result = AddTask(process, task);
        if (result != OS_MSG_OK) {
            process.tasks.clear();
            return result;
        }
    }
    JoinBus(lock, process, name);
    uint32_t result = OS_MSG_OK;
    for (const auto& task : std::vector(process.tasks)) {
        result = StartTask(process, task);
        if (result != OS_MSG_OK) {
            std::erase_if(process.tasks, [&task](const auto& each) { return each == task; });
            RequestLeave(process);
            break;
        }
    }
    JoinTasks(lock, process);
    if (process.dead) {
        return OS_MSG_ERR_NO_BUS;
    }
    LeaveBus(process);
    return result;
}

}  // namespace

}  // namespace kivo::fake

using namespace kivo::fake;

uint32_t OsProcAttach(const char* procName) {
    Lock lock = Hold();
    if (const auto code = Failure(lock, "OsProcAttach")) {
        return *code;
    }
    Process& process = CurrentProcess();
    const std::string name = AttachName(procName);
    const uint32_t result = MayAttach(process, name);
    if (result == OS_MSG_OK) {
        JoinBus(lock, process, name);
    }
    return result;
}

void OsProcDetach(void) {
    Lock lock = Hold();
    Process& process = CurrentProcess();
    if (process.state == Process::State::kOff) {
        return;
    }
    RequestLeave(process);
    JoinTasks(lock, process);
    LeaveBus(process);
}

void OsProcRequestDetach(void) {
    const Lock lock = Hold();
    RequestLeave(CurrentProcess());
}

uint32_t OsTaskCreate(const struct OsTaskDescriptor* task) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsTaskCreate")) {
        return *code;
    }
    Process& process = CurrentProcess();
    if (task == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    if (!process.Attached()) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    uint32_t result = AddTask(process, *task);
    if (result == OS_MSG_OK) {
        result = StartTask(process, process.tasks.back());
        if (result != OS_MSG_OK) {
            process.tasks.pop_back();
        }
    }
    return result;
}

uint32_t OsTaskRun(const char* procName, const struct OsTaskDescriptor* tasks, uint32_t count) {
    Lock lock = Hold();
    if (const auto code = Failure(lock, "OsTaskRun")) {
        return *code;
    }
    Process& process = CurrentProcess();
    const std::string name = AttachName(procName);
    if (tasks == nullptr || count == 0) {
        return OS_MSG_ERR_PARAM;
    }
    RecordCall(lock, "OsTaskRun(" + name + ", " + std::to_string(count) + ")");
    const uint32_t result = MayAttach(process, name);
    return result == OS_MSG_OK ? RunTasks(lock, process, name, {tasks, count}) : result;
}

uint32_t OsMsgTaskRoutineByName(const char* taskName) {
    Lock lock = Hold();
    if (const auto code = Failure(lock, "OsMsgTaskRoutineByName")) {
        return *code;
    }
    if (taskName == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    RecordCall(lock, std::string("OsMsgTaskRoutineByName(") + taskName + ")");
    Process& process = CurrentProcess();
    if (process.state == Process::State::kOff) {
        return process.dead ? OS_MSG_ERR_NO_BUS : OS_MSG_ERR_NOT_ATTACHED;
    }
    const auto task = process.FindTask(taskName);
    return task == nullptr ? OS_MSG_ERR_NO_TASK : RunLoop(lock, process, task);
}

uint64_t OsMsgDroppedCount(const char* taskName) {
    const Lock lock = Hold();
    const auto task = taskName == nullptr ? nullptr : CurrentProcess().FindTask(taskName);
    return task == nullptr ? 0 : task->dropped;
}

const char* OsMsgBusAddress(void) {
    return "fake";
}

void OsProcSetVersion(const char* /*version*/) {}

const char* OsMsgJoinFailure(void) {
    return "";
}
