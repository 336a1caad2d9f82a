// The task runner: the table of live jobs and their threads.
#include "task/inspacet_task.h"

#include <cstdint>
#include <new>

#include "kivo/os_thread.h"
#include "kivo/os_time.h"
#include "server/guard.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"inspacetTask", 16};
constexpr unsigned int kLastReservedId = 16;

}  // namespace

InspacetTask& InspacetTask::manager = *new InspacetTask;

unsigned int InspacetTask::Register(const std::function<void(TaskData&)>& func, bool forceOnly, unsigned int& counter) {
    std::function<void(TaskData&)> copy(func);
    const std::lock_guard lock(m_tableLock);
    do {
        ++counter;
    } while (counter <= kLastReservedId || m_tasks.find(counter) != m_tasks.end());
    TaskData& task = m_tasks[counter];
    task.forceOnly = forceOnly;
    task.taskId = counter;
    task.func.swap(copy);
    return counter;
}

unsigned int InspacetTask::Refused() {
    INSPECT_ERROR("createthread error");
    return 0;
}

unsigned int InspacetTask::CreateTask(const std::function<void(TaskData&)>& func, bool forceOnly) {
    static auto counter = static_cast<unsigned int>(OsGetSystemTime());  // its low 32 bits
    unsigned int taskId = 0;
    try {
        taskId = manager.Register(func, forceOnly, counter);
    } catch (const std::bad_alloc&) {
        return Refused();
    }
    OsThread thread{};
    void* const argument = reinterpret_cast<void*>(static_cast<std::uintptr_t>(taskId));  // NOLINT: a number
    if (OsPthreadCreate(&thread, nullptr, ThreadFunc, argument) != 0) {
        RemoveTask(taskId);
        return Refused();
    }
    (void)OsPthreadDetach(thread);
    return taskId;
}

void* InspacetTask::ThreadFunc(void* arg) noexcept {
    const auto taskId = static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(arg));
    TaskData* task = nullptr;
    {
        const std::lock_guard lock(manager.m_tableLock);
        const auto found = manager.m_tasks.find(taskId);
        if (found == manager.m_tasks.end()) {
            return nullptr;
        }
        task = &found->second;
    }
    RunGuarded(kLogUnit, "job", [task] { task->func(*task); });
    RemoveTask(taskId);
    return nullptr;
}

unsigned int InspacetTask::StopTask(unsigned int taskId, bool force) {
    const std::lock_guard lock(manager.m_tableLock);
    const auto found = manager.m_tasks.find(taskId);
    if (found == manager.m_tasks.end() || (found->second.forceOnly && !force)) {
        return 1;
    }
    found->second.stopFlag = true;
    return 0;
}

void InspacetTask::RemoveTask(unsigned int taskId) {
    const std::lock_guard lock(manager.m_tableLock);
    manager.m_tasks.erase(taskId);
}
