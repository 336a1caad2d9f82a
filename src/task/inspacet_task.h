// The task runner: background jobs, each on a detached thread of its own, that can be asked to stop.
//
// States of a job: registered -> running -> gone. It can be asked to stop until it is gone. Nobody waits for a job: it
// looks at its stop flag about once a second and returns when that is set.
//
// Jobs that still run when the process exits are not stopped. They may call everything here all the same, also after
// the task table has been destroyed.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

/// One live job. The body gets it by reference and must not keep it beyond its return.
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

    /// Whether any job is registered or running. At the end of the process: whether one may still use other objects.
    static bool HasLiveJobs();

    /// The one instance: made during static initialisation, destroyed with its table when the process exits.
    static InspacetTask manager;

private:
    friend class InspacetTaskPeer;  // lets the unit tests occupy an identifier

    InspacetTask() = default;
    ~InspacetTask();

    // Says that there is no job, and gives the identifier of none.
    static unsigned int Refused();

    // The identifier of the new job; 0 when the table is gone.
    unsigned int Register(const std::function<void(TaskData&)>& func, bool forceOnly, unsigned int& counter);

    // The job of that identifier; null when there is none. Needs the table lock.
    std::shared_ptr<TaskData> Find(unsigned int taskId) const;

    // Owns the jobs, each together with the thread that runs it: its record outlives the table while it runs.
    std::map<unsigned int, std::shared_ptr<TaskData>> m_tasks;

    // Guards m_tasks, m_gone and the identifier counter of CreateTask. Neither needs a destructor, so that threads that
    // outlive the table can use them.
    static constinit std::mutex m_tableLock;
    static constinit bool m_gone;  // the table has been destroyed
};
