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

namespace {

SimRequester RequesterOf(const void* first, uint32_t number) {
    const auto& requester = static_cast<const InspectClientMsg*>(first)[number];
    const auto* const begin = reinterpret_cast<const char*>(&requester);
    const auto lies = [begin](const std::string& text) {
        return text.data() >= begin && text.data() < begin + sizeof requester;
    };
    return {requester.procName.c_str(), requester.taskName.c_str(),
            lies(requester.procName) && lies(requester.taskName)};
}

}  // namespace

extern "C" {

__attribute__((visibility("hidden"))) extern void* __dso_handle;  // NOLINT(bugprone-reserved-identifier)
void __cxa_finalize(void* module);                                // NOLINT(bugprone-reserved-identifier)

uint32_t SimVisitTable(void (*visit)(void* context, const SimEntry& entry), void* context) {
    for (const auto& [name, data] : ResultMgrPeer::Table()) {
        const std::vector<InspectClientMsg>& list = data.requesters;
        visit(context,
              {name.c_str(),
               data.startCount,
               data.taskId,
               data.timeout,
               &data.result,
               data.startTime,
               data.endTime,
               {list.data(), list.size() * sizeof(InspectClientMsg), static_cast<uint32_t>(list.size()), RequesterOf}});
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
