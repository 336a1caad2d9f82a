// Operations on the table that start no run.
#include "result/result_mgr.h"

#include "base/log.h"
#include "base/serving.h"
#include "kivo/os_bounds.h"
#include "task/inspacet_task.h"

namespace {

constexpr LogUnit kLogUnit{"ResultMgr", 13};

// Destroys the one instance when the process exits, unless a background job or the server's task may still use it: they
// and the table then end with the process.
union Global {
    Global() : value() {}
    Global(const Global&) = delete;
    Global& operator=(const Global&) = delete;
    ~Global() {
        if (!InspacetTask::HasLiveJobs() && !Serving::IsUnderWay()) {
            value.~ResultMgr();
        }
    }

    ResultMgr value;
};

Global g_global;

}  // namespace

ResultMgr& g_resultMgr = g_global.value;

tagKivoOmInspectionResult MakeResult(const char* name, const char* status, const char* text) {
    tagKivoOmInspectionResult result{};
    (void)strcpy_s(result.name, sizeof(result.name), name);
    (void)strcpy_s(result.status, sizeof(result.status), status);
    (void)strcpy_s(result.text, sizeof(result.text), text);
    return result;
}

tagKivoOmInspectionDataItem MakeDataItem(const ResultData& data) {
    return {data.result, data.startTime, data.endTime};
}

void ResultMgr::Init() {
    runningCount = 0;
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

uint32_t ResultMgr::UnLockResult(const std::string& name, tagKivoOmInspectionDataItem& out) {
    const std::lock_guard lock(m_tableLock);
    ResultData* data = Find(name);
    if (data == nullptr) {
        out.result = MakeResult(name.c_str(), "fail", "no support");
        INSPECT_ERROR("find name err [%s] ", name.c_str());
        return 1;
    }
    out = MakeDataItem(*data);
    if (HasStatus(out.result, "running")) {
        return 0;
    }
    StopInspect(*data, false);
    return 1;
}

void ResultMgr::GetResultStatic(const std::string& name, tagKivoOmInspectionDataItem& out) {
    const std::lock_guard lock(m_tableLock);
    if (const ResultData* data = Find(name)) {
        out = MakeDataItem(*data);
    }
}

void ResultMgr::SetResultStatic(const std::string& name, const std::string& status) {
    const std::lock_guard lock(m_tableLock);
    ResultData* data = Find(name);
    if (data == nullptr) {
        return;
    }
    char(&field)[OM_INSPECT_STATUS_SIZE] = data->result.status;
    (void)memset_s(field, sizeof(field), 0, sizeof(field));
    const errno_t error = strcpy_s(field, sizeof(field), status.c_str());
    INSPECT_INFO("SetResultStatic %s to %s", name.c_str(), status.c_str());
    if (error != 0) {
        INSPECT_INFO("SetResultStatic %s err, ret : %d", name.c_str(), error);
    }
}
