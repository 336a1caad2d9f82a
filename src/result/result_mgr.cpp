// The result table: items, groups and requesters come and go.
#include "result/result_mgr.h"

#include "server/log.h"
#include "task/inspacet_task.h"

namespace {

constexpr LogUnit kLogUnit{"ResultMgr", 13};

}  // namespace

ResultMgr& g_resultMgr = *new ResultMgr;

void ResultMgr::Init() {
    m_runningCount = 0;
}

ResultData* ResultMgr::Find(const std::string& name) {
    const auto found = m_results.find(name);
    return found == m_results.end() ? nullptr : &found->second;
}

void ResultMgr::AddItem(const std::string& name, unsigned int timeout, const InspectClientMsg& owner) {
    INSPECT_INFO("add inspection in result: [%s] ", name.c_str());
    {
        const std::lock_guard lock(m_tableLock);
        ResultData& data = m_results[name];
        data.result = MakeResult(name.c_str(), "idle", "init");
        data.timeout = timeout;
        data.startTime = 0;
        data.endTime = 0;
        INSPECT_INFO("result size[%lu] ", static_cast<unsigned long>(m_results.size()));
    }
    (void)m_pipelining.RegInspectItem(name, owner);
}

void ResultMgr::DelItem(const std::string& name) {
    INSPECT_INFO("del inspection in result: [%s] ", name.c_str());
    uint32_t taskId = 0;
    {
        const std::lock_guard lock(m_tableLock);
        const auto found = m_results.find(name);
        if (found != m_results.end()) {
            StopInspect(found->second, true);
            taskId = found->second.taskId;
            m_results.erase(found);
        }
    }
    (void)m_pipelining.UnRegInspectItem(name);
    if (taskId != 0) {
        (void)InspacetTask::StopTask(taskId, true);
    }
}

void ResultMgr::AddGroup(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        ResultData& data = m_results[name];
        data.startTime = 0;
        data.endTime = 0;
        data.result = MakeResult(name.c_str(), "success", "init");
    }
}

void ResultMgr::AddRequesterMsg(const std::string& name, const InspectClientMsg& client) {
    INSPECT_INFO("add requester [%s] to [%s:%s]", name.c_str(), client.procName.c_str(), client.taskName.c_str());
    const std::lock_guard lock(m_tableLock);
    if (ResultData* data = Find(name)) {
        data->requesters.push_back(client);
    }
}

void ResultMgr::DelRequesterMsg(const std::string& name, const InspectClientMsg& client) {
    INSPECT_INFO("del requester [%s] to [%s:%s]", name.c_str(), client.procName.c_str(), client.taskName.c_str());
    const std::lock_guard lock(m_tableLock);
    ResultData* data = Find(name);
    if (data != nullptr && !data->requesters.empty()) {
        data->requesters.pop_back();  // always the last one, whichever was named
    }
}

void ResultMgr::GetRequesterMsg(const std::string& name, std::vector<InspectClientMsg>& out) {
    const std::lock_guard lock(m_tableLock);
    if (const ResultData* data = Find(name)) {
        out = data->requesters;
    }
}
