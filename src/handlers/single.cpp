// Single-item requests: id 0, answered by the reply, and id 18, answered by messages from a background job.
#include "handlers/single.h"

#include <unistd.h>

#include <cstring>
#include <string_view>

#include "base/guard.h"
#include "base/log.h"
#include "base/send_result.h"
#include "handlers/handlers.h"
#include "handlers/json.h"
#include "handlers/payload.h"
#include "kivo/os_bounds.h"
#include "ominspect/messages.h"
#include "result/result_mgr.h"
#include "task/inspacet_task.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};
constexpr uint8_t kWait = 0;
constexpr uint8_t kFinal = 1;

void SendItem(const tagKivoOmInspectionDataItem& item, const InspectClientMsg& client) {
    SendASyncResult(OM_INSPECT_MSG_RUN, client, reinterpret_cast<const unsigned char*>(&item.result),
                    sizeof(item.result));
}

// A requester of an item that runs gets two results: "running", and the final one.
void RunSingle(const std::string& requestJson, const InspectClientMsg& client) {
    tagKivoOmInspectionDataItem item{};
    std::string name;
    name.reserve(sizeof(item.result.name));  // to let go of the item after its end needs no memory
    const bool wait = Inspect::InspectSingle(requestJson, item) == kWait;
    SendItem(item, client);
    if (!wait) {
        return;
    }
    name = item.result.name;
    // Without memory for it there is no progress for the requester, but still a result.
    (void)RunGuarded(kLogUnit, "adding a requester", [&] { g_resultMgr.AddRequesterMsg(name, client); });
    do {
        sleep(1);
    } while (g_resultMgr.UnLockResult(name, item) == 0);
    SendItem(item, client);
}

}  // namespace

uint8_t Inspect::InspectSingle(const std::string& requestJson, tagKivoOmInspectionDataItem& item) {
    char name[OM_INSPECT_NAME_SIZE] = {};
    char(&cmd)[OM_INSPECT_TEXT_SIZE] = item.result.text;
    const JsonText json{requestJson.c_str(), static_cast<uint32_t>(requestJson.length())};
    (void)JsonGetValue(&json, "name", name, sizeof(name));  // what is missing stays empty
    (void)JsonGetValue(&json, "cmd", cmd, sizeof(cmd));
    INSPECT_INFO("InspectSingle[%s][%s][%s]", requestJson.c_str(), name, cmd);
    if (strcpy_s(item.result.name, sizeof(item.result.name), name) != 0) {
        INSPECT_ERROR("InspectSingle cpy err");
    }

    tagKivoOmInspectionRequestMsg request{};
    std::memcpy(request.name, name, sizeof(name));
    request.len = json.len + 1;
    request.data = json.text;
    if (std::string_view(cmd) == "stop") {
        g_resultMgr.RunResult(request, item.result);
        return kFinal;
    }
    if (std::string_view(cmd) == "done") {
        g_resultMgr.SetResultStatic(name, "idle");
        return kFinal;
    }
    g_resultMgr.GetResult(request, item);
    return HasStatus(item.result, "running") ? kWait : kFinal;
}

void Inspect::SyncDealSingle(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength) {
    if (!HasPayload(*msg)) {
        return;
    }
    const std::string json = PayloadText(*msg);
    if (!AllocateReply(sizeof(tagKivoOmInspectionResult), reply, replyLength)) {
        return;
    }
    tagKivoOmInspectionDataItem item{};
    if (InspectSingle(json, item) == kWait) {
        // The name is taken from the reply, which is still all zero: it is the empty one.
        const std::string key(reinterpret_cast<const char*>(reply.get()));
        g_resultMgr.AddRequesterMsg(key, ClientOf(*msg));
        do {
            sleep(1);
        } while (g_resultMgr.UnLockResult(key, item) == 0);
    }
    std::memcpy(reply.get(), &item.result, sizeof(item.result));
}

void Inspect::ASyncDealSingle(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/,
                              unsigned int& /*replyLength*/) {
    if (HasPayload(*msg)) {
        (void)InspacetTask::StartJob(
            [json = PayloadText(*msg), client = ClientOf(*msg)](TaskData& /*task*/) { RunSingle(json, client); }, true);
    }
}
