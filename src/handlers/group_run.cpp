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

// The items that the job has started and holds. To let go of one needs no memory, so that none is held for ever.
struct Pending {
    explicit Pending(std::size_t most) {
        indexes.reserve(most);
        name.reserve(OM_INSPECT_NAME_SIZE);
    }

    std::vector<std::size_t> indexes;
    std::string name;  // of the one that is asked for
};

// Waits for the items. When the job is asked to stop, asks their owners to stop them, once.
void AwaitItems(Pending& pending, Items& items, const TaskData& task) {
    bool stopping = false;
    while (!pending.indexes.empty()) {
        if (!stopping && task.stopFlag) {
            stopping = true;
            for (const std::size_t index : pending.indexes) {
                (void)RunGuarded(kLogUnit, "stop of an item", [&] { Inspect::StopItem(items[index].result.name); });
            }
        }
        sleep(1);
        std::erase_if(pending.indexes, [&](std::size_t index) {
            pending.name = items[index].result.name;
            return g_resultMgr.UnLockResult(pending.name, items[index]) != 0;
        });
    }
}

// Whether the item runs and must be waited for. Without memory it fails like an item whose owner does not answer.
bool StartItem(const std::string& text, tagKivoOmInspectionDataItem& item) {
    bool runs = false;
    if (!RunGuarded(kLogUnit, "start of an item", [&] { runs = Inspect::InspectSingle(text, item) == 0; })) {
        item.result = MakeResult(item.result.name, "fail", "run err");
    }
    return runs;
}

void RunItems(std::vector<std::string>& texts, tagKivoOmInspectionGroupResult& record, const TaskData& task) {
    texts.resize(std::min<std::size_t>(texts.size(), OM_INSPECT_GROUP_SLOTS));
    record.count = static_cast<uint32_t>(texts.size());
    Pending pending(texts.size());
    for (std::size_t index = 0; index < texts.size() && !task.stopFlag; ++index) {
        if (StartItem(texts[index], record.items[index])) {
            pending.indexes.push_back(index);
        }
    }
    AwaitItems(pending, record.items, task);
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
        (void)RunGuarded(kLogUnit, "reset of an item", [&text] { ResetItem(text); });
    }
}
