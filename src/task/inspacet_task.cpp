// A job is erased by its own thread; nobody joins it.
#include "task/inspacet_task.h"

#include <pthread.h>

#include <cstdint>
#include <new>
#include <type_traits>

#include "base/guard.h"
#include "base/log.h"
#include "kivo/os_thread.h"
#include "kivo/os_time.h"

namespace {

constexpr LogUnit kLogUnit{"inspacetTask", 16};
constexpr unsigned int kLastReservedId = 16;

constinit std::atomic<unsigned int> g_liveJobs{0};  // records that exist, in the table or with their threads

// A job's record, counted as long as it lives.
std::shared_ptr<TaskData> MakeRecord() {
    auto* const record = new TaskData;
    ++g_liveJobs;
    return {record, [](const TaskData* task) {
                delete task;
                --g_liveJobs;
            }};
}

}  // namespace

static_assert(std::is_trivially_destructible_v<std::mutex>, "threads use the lock after static destruction");

constinit std::mutex InspacetTask::m_tableLock;
constinit bool InspacetTask::m_gone = false;
InspacetTask InspacetTask::manager;

InspacetTask::~InspacetTask() {
    const std::lock_guard lock(m_tableLock);
    m_gone = true;  // the table itself goes after this, when no thread looks at it any more
}

bool InspacetTask::HasLiveJobs() {
    return g_liveJobs != 0;
}

std::shared_ptr<TaskData> InspacetTask::Find(unsigned int taskId) const {
    if (m_gone) {
        return nullptr;
    }
    const auto found = m_tasks.find(taskId);
    return found == m_tasks.end() ? nullptr : found->second;
}

unsigned int InspacetTask::Register(const std::function<void(TaskData&)>& func, bool forceOnly, unsigned int& counter) {
    auto task = MakeRecord();
    task->forceOnly = forceOnly;
    task->func = func;
    const std::lock_guard lock(m_tableLock);
    if (m_gone) {
        return 0;
    }
    do {
        ++counter;
    } while (counter <= kLastReservedId || m_tasks.contains(counter));
    task->taskId = counter;
    m_tasks.emplace(counter, std::move(task));
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
    if (taskId == 0) {
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
    std::shared_ptr<TaskData> task;
    {
        const std::lock_guard lock(m_tableLock);
        task = manager.Find(taskId);
    }
    if (task == nullptr) {
        return nullptr;
    }
    (void)pthread_setname_np(pthread_self(), "inspect_job");
    RunGuarded(kLogUnit, "job", [&task] { task->func(*task); });
    RemoveTask(taskId);
    return nullptr;
}

unsigned int InspacetTask::StopTask(unsigned int taskId, bool force) {
    const std::lock_guard lock(m_tableLock);
    const std::shared_ptr<TaskData> task = manager.Find(taskId);
    if (task == nullptr || (task->forceOnly && !force)) {
        return 1;
    }
    task->stopFlag = true;
    return 0;
}

void InspacetTask::RemoveTask(unsigned int taskId) {
    const std::lock_guard lock(m_tableLock);
    if (!m_gone) {
        manager.m_tasks.erase(taskId);
    }
}
