// Part of the server's image: the unit tests' friends of its classes look into them here.
#include "probe.h"

#include <vector>

#include "result/result_mgr.h"
#include "task/inspacet_task.h"

class ResultMgrPeer {
public:
    static const auto& Table() { return g_resultMgr.m_results; }
    static uint32_t RunningCount() { return g_resultMgr.runningCount; }
    static const void* Lock() { return &g_resultMgr.m_tableLock; }
};

class InspacetTaskPeer {
public:
    static const auto& Jobs() { return InspacetTask::manager.m_tasks; }
    static const void* Lock() { return &InspacetTask::m_tableLock; }
};

extern "C" {

__attribute__((visibility("hidden"))) extern void* __dso_handle;  // NOLINT(bugprone-reserved-identifier)
void __cxa_finalize(void* module);                                // NOLINT(bugprone-reserved-identifier)

uint32_t SimVisitTable(void (*visit)(void* context, const SimEntry& entry, const SimRequester* requesters),
                       void* context) {
    std::vector<SimRequester> requesters;
    for (const auto& [name, data] : ResultMgrPeer::Table()) {
        requesters.clear();
        for (const InspectClientMsg& requester : data.requesters) {
            requesters.push_back({requester.procName.c_str(), requester.taskName.c_str()});
        }
        visit(context,
              {name.c_str(), data.startCount, data.taskId, data.timeout, &data.result, data.startTime, data.endTime,
               static_cast<uint32_t>(requesters.size())},
              requesters.data());
    }
    return ResultMgrPeer::RunningCount();
}

void SimVisitJobs(void (*visit)(void* context, const SimJob& job), void* context) {
    for (const auto& [id, task] : InspacetTaskPeer::Jobs()) {
        visit(context, {task->taskId, task->stopFlag, task->forceOnly});
    }
}

const void* SimTableLock() {
    return ResultMgrPeer::Lock();
}

const void* SimJobsLock() {
    return InspacetTaskPeer::Lock();
}

void SimEnd() {
    __cxa_finalize(&__dso_handle);
}
}
