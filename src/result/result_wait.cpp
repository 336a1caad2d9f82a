// The wait timer: a job that fails a run whose result is not in within the item's time limit.
#include "result/result_mgr.h"

#include <unistd.h>

#include "kivo/os_time.h"
#include "server/field_text.h"
#include "server/log.h"
#include "task/inspacet_task.h"

namespace {

constexpr LogUnit kLogUnit{"ResultMgr", 13};

}  // namespace

void ResultMgr::WaitResult(ResultData& data) {
    const FieldText name(data.result.name);
    data.taskId =
        InspacetTask::StartJob([this, name, timeout = data.timeout](
                                   TaskData& task) { AwaitTimeLimit(std::string(name.View()), timeout, task); },
                               true);
    if (data.taskId == 0) {
        data.result = MakeResult(name.c_str(), "fail", "wait err");
        INSPECT_INFO("create thread err[%s]", name.c_str());
    }
}

void ResultMgr::AwaitTimeLimit(const std::string& name, uint32_t timeout, TaskData& task) {
    INSPECT_INFO("start wait[%s]", name.c_str());
    uint64_t elapsed = 0;
    while (!task.stopFlag) {
        sleep(1);
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
