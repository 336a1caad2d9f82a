// Single-item requests: the request itself, and its synchronous handler.
#include "handlers/single.h"

#include <unistd.h>

#include <cstring>
#include <string_view>

#include "handlers/handlers.h"
#include "handlers/json.h"
#include "handlers/payload.h"
#include "handlers/reply.h"
#include "kivo/os_bounds.h"
#include "result/result_mgr.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};
constexpr uint8_t kWait = 0;
constexpr uint8_t kFinal = 1;

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

void Inspect::SyncDealSingle(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLen) {
    if (!HasPayload(*msg)) {
        return;
    }
    const std::string json = PayloadText(*msg);
    if (!AllocateReply(sizeof(tagKivoOmInspectionResult), reply, replyLen)) {
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
