// Runs on the result table: started, joined, ended, and reported by the owners.
#include "result/result_mgr.h"

#include "kivo/os_bounds.h"
#include "kivo/os_time.h"
#include "result/broadcast.h"
#include "server/field_text.h"
#include "server/log.h"
#include "task/inspacet_task.h"

namespace {

constexpr LogUnit kLogUnit{"ResultMgr", 13};

}  // namespace

void ResultMgr::BeginRun(ResultData& data, const std::string* text) {
    if (data.startCount == 0) {
        data.startTime = OsGetSystemTime();
        if (m_runningCount == 0) {
            BroadcastBusy();
        }
        ++m_runningCount;
        if (text != nullptr) {
            const errno_t error = strcpy_s(data.result.text, sizeof(data.result.text), text->c_str());
            if (error != 0) {
                INSPECT_INFO("StartInspect strcpy_s %s err, ret %d", text->c_str(), error);
            }
        }
        BroadcastRun(data.result);
    }
    ++data.startCount;
}

void ResultMgr::EndRun(ResultData& data, const std::string* text, bool force) {
    if (data.startCount == 0) {
        return;
    }
    --data.startCount;  // by one, also when forced
    if (data.startCount != 0 && !force) {
        return;
    }
    data.endTime = OsGetSystemTime();
    if (text != nullptr) {
        const errno_t error = strcpy_s(data.result.text, sizeof(data.result.text), text->c_str());
        if (error != 0) {
            INSPECT_INFO("StopInspect strcpy_s %s err, ret %d", text->c_str(), error);
        }
    }
    BroadcastRun(data.result);
    --m_runningCount;
    if (m_runningCount == 0) {
        BroadcastIdle();
    }
    data.requesters.clear();
}

void ResultMgr::StartInspect(ResultData& data) {
    BeginRun(data, nullptr);
}

void ResultMgr::StartInspect(ResultData& data, const std::string& result) {
    BeginRun(data, &result);
}

void ResultMgr::StopInspect(ResultData& data, bool force) {
    EndRun(data, nullptr, force);
}

void ResultMgr::StopInspect(ResultData& data, const std::string& result, bool force) {
    EndRun(data, &result, force);
}

uint32_t ResultMgr::StartGroup(const std::string& name) {
    const std::lock_guard lock(m_tableLock);
    ResultData* data = Find(name);
    if (data == nullptr) {
        return 0;
    }
    if (data->startCount == 0) {
        data->result = MakeResult(name.c_str(), "running", "begin");
    }
    StartInspect(*data, name);
    return data->startCount;
}

void ResultMgr::StopGroup(const std::string& name) {
    const std::lock_guard lock(m_tableLock);
    ResultData* data = Find(name);
    if (data == nullptr) {
        return;
    }
    if (data->startCount == 1) {
        data->result = MakeResult(name.c_str(), "success", "end");
    }
    StopInspect(*data, name, false);
}

void ResultMgr::GetResult(tagKivoOmInspectionRequestMsg& request, tagKivoOmInspectionDataItem& out) {
    const std::string name(FieldText(request.name).View());
    std::unique_lock lock(m_tableLock);
    ResultData* data = Find(name);
    if (data == nullptr) {
        out.result = MakeResult(name.c_str(), "fail", "no support");
        INSPECT_ERROR("Get Result fail, name [%s]", name.c_str());
        return;
    }
    if (data->startCount != 0) {
        out = MakeDataItem(*data);
        if (HasStatus(data->result, "running")) {
            StartInspect(*data);
        }
        return;
    }
    data->result = MakeResult(name.c_str(), "running", "begin");
    StartInspect(*data);

    lock.unlock();
    RunResult(request, out.result);
    lock.lock();

    data = Find(name);  // it may have been deleted meanwhile
    if (data == nullptr) {
        INSPECT_ERROR("can not find name [%s]", name.c_str());
        return;
    }
    data->result = out.result;
    if (HasStatus(data->result, "running")) {
        WaitResult(*data);
    } else {
        data->endTime = OsGetSystemTime();
        StopInspect(*data, false);
    }
    out = MakeDataItem(*data);
}

void ResultMgr::RunResult(tagKivoOmInspectionRequestMsg& request, tagKivoOmInspectionResult& result) {
    result = MakeResult(FieldText(request.name).c_str(), "fail", "run err");
    const unsigned int code = m_pipelining.GetInspectResult(request, result);
    INSPECT_INFO("RunResult ret[%u] name[%s] result[%s]", code, FieldText(result.name).c_str(),
                 FieldText(result.status).c_str());
}

void ResultMgr::SetResult(tagKivoOmInspectionResult& result) {
    const bool running = HasStatus(result, "running");
    uint32_t taskId = 0;
    {
        const std::lock_guard lock(m_tableLock);
        ResultData* data = Find(std::string(FieldText(result.name).View()));
        if (data == nullptr || (running && !HasStatus(data->result, "running"))) {
            return;
        }
        data->result = result;
        if (!running) {
            data->endTime = OsGetSystemTime();
            taskId = data->taskId;
            data->taskId = 0;
        }
    }
    if (taskId != 0) {
        (void)InspacetTask::StopTask(taskId, true);
    }
}
