// Runs on the table, from their start to their end, and the events that announce both.
#include "result/result_mgr.h"

#include <new>
#include <string>

#include "base/field_text.h"
#include "base/log.h"
#include "kivo/os_bounds.h"
#include "kivo/os_msg.h"
#include "kivo/os_thread.h"
#include "kivo/os_time.h"
#include "ominspect/messages.h"
#include "task/inspacet_task.h"

namespace {

constexpr LogUnit kLogUnit{"ResultMgr", 13};

void Broadcast(uint32_t eventId, const void* data, uint32_t dataLen) {
    OsMsgEvent event{};
    event.eventId = eventId;
    event.dataLen = dataLen;
    event.data = data;
    if (strcpy_s(event.taskName, sizeof(event.taskName), "iom_srv_task") == 0 && OsMsgBroadcastEvent(&event, 1) != 0) {
        INSPECT_ERROR("broadcast err id[%u]", eventId);
    }
}

void BroadcastState(uint32_t state) {
    Broadcast(OM_INSPECT_EVENT_BUSY, &state, sizeof(state));
}

void BroadcastRun(const tagKivoOmInspectionResult& result) {
    Broadcast(OM_INSPECT_EVENT_RUN, &result, sizeof(result));
}

void BroadcastBusy() {
    BroadcastState(0);
}

void BroadcastIdle() {
    BroadcastState(1);
}

}  // namespace

void ResultMgr::BeginRun(ResultData& data, const std::string* text) {
    if (data.startCount == 0) {
        data.startTime = OsGetSystemTime();
        if (runningCount == 0) {
            BroadcastBusy();
        }
        ++runningCount;
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
    --runningCount;
    if (runningCount == 0) {
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

void ResultMgr::WaitResult(ResultData& data) {
    const FieldText name(data.result.name);
    data.taskId = StartWait(name.c_str(), data.timeout);
    if (data.taskId == 0) {
        data.result = MakeResult(name.c_str(), "fail", "wait err");
        INSPECT_INFO("create thread err[%s]", name.c_str());
    }
}

uint32_t ResultMgr::StartWait(const char* name, uint32_t timeout) {
    try {
        // The name is copied before the job exists: a job that ran out of memory later would leave the item running.
        return InspacetTask::CreateTask(
            [this, entry = std::string(name), timeout](TaskData& task) { AwaitTimeLimit(entry, timeout, task); }, true);
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

void ResultMgr::AwaitTimeLimit(const std::string& name, uint32_t timeout, TaskData& task) {
    INSPECT_INFO("start wait[%s]", name.c_str());
    uint64_t elapsed = 0;
    while (!task.stopFlag) {
        (void)OsSleep(1);  // unlike sleep(3), not shortened by a signal
        if (timeout != 0) {
            elapsed += 1000;
            if (timeout <= elapsed) {
                break;
            }
        }
    }
    INSPECT_INFO("stop wait[%s]", name.c_str());
    if (task.stopFlag) {
        return;
    }
    {
        const std::lock_guard lock(m_tableLock);
        ResultData* data = Find(name);
        if (data == nullptr || !HasStatus(data->result, "running")) {
            return;  // deleted, or the result came in meanwhile
        }
        data->endTime = OsGetSystemTime();
        data->taskId = 0;
        data->result = MakeResult(name.c_str(), "fail", "timeout");
    }
    if (!task.stopFlag) {
        INSPECT_INFO("timeout wait[%s]", name.c_str());
    }
}
