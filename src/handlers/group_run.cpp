// The job starts the items in order and then polls their results once a second.
#include "handlers/group_run.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "base/guard.h"
#include "base/log.h"
#include "base/send_result.h"
#include "handlers/json.h"
#include "handlers/single.h"
#include "kivo/os_bounds.h"
#include "ominspect/messages.h"
#include "result/result_mgr.h"
#include "task/inspacet_task.h"

// The tests' build of the server waits less long.
#ifndef INSPECT_GROUP_STOP_ROUNDS
#define INSPECT_GROUP_STOP_ROUNDS 120
#endif

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};
constexpr unsigned int kStopRounds = INSPECT_GROUP_STOP_ROUNDS;  // of one second each

using Items = tagKivoOmInspectionDataItem[OM_INSPECT_GROUP_SLOTS];

// Waits for the items with these indexes. When the job is asked to stop, asks their owners to stop them, once.
void AwaitItems(std::vector<std::size_t> pending, Items& items, const TaskData& task) {
    bool stopping = false;
    while (!pending.empty()) {
        if (!stopping && task.stopFlag) {
            stopping = true;
            for (const std::size_t index : pending) {
                Inspect::StopItem(items[index].result.name);
            }
        }
        sleep(1);
        std::erase_if(pending, [&items](std::size_t index) {
            return g_resultMgr.UnLockResult(items[index].result.name, items[index]) != 0;
        });
    }
}

void RunItems(std::vector<std::string>& texts, tagKivoOmInspectionGroupResult& record, const TaskData& task) {
    texts.resize(std::min<std::size_t>(texts.size(), OM_INSPECT_GROUP_SLOTS));
    record.count = static_cast<uint32_t>(texts.size());
    std::vector<std::size_t> pending;
    for (std::size_t index = 0; index < texts.size() && !task.stopFlag; ++index) {
        if (Inspect::InspectSingle(texts[index], record.items[index]) == 0) {
            pending.push_back(index);
        }
    }
    AwaitItems(std::move(pending), record.items, task);
}

void AwaitStop(const TaskData& task) {
    for (unsigned int round = 0; round < kStopRounds && !task.stopFlag; ++round) {
        sleep(1);
    }
    if (!task.stopFlag) {
        INSPECT_ERROR("group wait stop overtime[%u]", task.taskId);
    }
}

void ResetItem(const std::string& requestJson) {
    const JsonText json{requestJson.c_str(), static_cast<uint32_t>(requestJson.length())};
    char name[OM_INSPECT_NAME_SIZE] = {};
    (void)JsonGetValue(&json, "name", name, sizeof(name));  // without one, the empty name
    INSPECT_ERROR("group task set : %s to %s", name, "idle");
    g_resultMgr.SetResultStatic(name, "idle");
}

}  // namespace

void Inspect::StopItem(const std::string& name) {
    INSPECT_INFO("stop name[%s]", name.c_str());
    tagKivoOmInspectionRequestMsg request{};
    if (strcpy_s(request.name, sizeof(request.name), name.c_str()) != 0) {
        INSPECT_ERROR("stop fail[%s]", name.c_str());
        return;
    }
    const std::string json = R"({"name":")" + name + R"(", "cmd":"stop"})";
    request.data = json.c_str();
    request.len = static_cast<uint32_t>(json.length());  // without the NUL, unlike the other requests
    tagKivoOmInspectionResult result{};
    g_resultMgr.RunResult(request, result);
}

void Inspect::RunGroup(GroupRequest request, TaskData& task) {
    // The group and its items are reset whatever happens to the run.
    RunGuarded(kLogUnit, "group run", [&request, &task] {
        sleep(1);
        tagKivoOmInspectionGroupResult record{};
        record.taskId = task.taskId;
        RunItems(request.texts, record, task);
        SendASyncResult(OM_INSPECT_MSG_RUN_GROUP, request.client, reinterpret_cast<const unsigned char*>(&record),
                        sizeof(record));
        AwaitStop(task);
    });
    g_resultMgr.StopGroup(request.groupName);
    for (const std::string& text : request.texts) {
        ResetItem(text);
    }
}
