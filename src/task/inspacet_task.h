// The task runner: background jobs, each on a detached thread of its own, that can be asked to stop.
//
// States of a job: registered -> running -> gone, with a stop request possible from registered to gone. Nobody
// waits for a job; whoever wants it to stop asks, and the job looks at its stop flag about once a second.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <utility>

/// One live job. Owned by the task table; the body gets it by reference and must not keep it beyond its return.
struct TaskData {
    std::atomic<bool> stopFlag{false};  // set by StopTask under the table lock, read by the body without it
    bool forceOnly = false;             // only a forced StopTask may stop it
    unsigned int taskId = 0;
    std::function<void(TaskData&)> func;
};

/// All operations are for any thread, job bodies included, and act on the one instance.
class InspacetTask {
public:
    /// Starts `func` (copied) on a detached thread. Its identifier, always above 16; 0 when there is no thread or
    /// no memory for it.
    static unsigned int CreateTask(const std::function<void(TaskData&)>& func, bool forceOnly);

    /// The same for a callable that is yet to be wrapped: 0 also when there is no memory for that.
    template <typename Job>
    static unsigned int StartJob(Job&& job, bool forceOnly) {
        try {
            return CreateTask(std::forward<Job>(job), forceOnly);
        } catch (const std::bad_alloc&) {
            return Refused();
        }
    }

    /// Entry of a job's thread; `arg` is the job's identifier itself. Returns null.
    static void* ThreadFunc(void* arg) noexcept;

    /// Asks a job to stop. 0: recorded; 1: no such job, or it wants `force`.
    static unsigned int StopTask(unsigned int taskId, bool force);

    /// Erases a job, if present. For its own thread, once the body has returned.
    static void RemoveTask(unsigned int taskId);

    /// The one instance, made during static initialisation. It is never destroyed: detached jobs may still run
    /// while the process ends, and the table holds the data they run on.
    static InspacetTask& manager;

private:
    friend class InspacetTaskPeer;  // lets the unit tests occupy an identifier

    InspacetTask() = default;

    // Says that there is no job, and gives the identifier of none.
    static unsigned int Refused();

    unsigned int Register(const std::function<void(TaskData&)>& func, bool forceOnly, unsigned int& counter);

    std::map<unsigned int, TaskData> m_tasks;  // its nodes stay where they are, whatever else comes and goes
    std::mutex m_tableLock;                    // guards m_tasks and the identifier counter of CreateTask
};
