// Results that items' owners report.
#include <cstring>
#include <vector>

#include "handlers/handlers.h"
#include "handlers/records.h"
#include "ominspect/messages.h"
#include "result/result_mgr.h"
#include "server/log.h"
#include "server/send_result.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};

bool IsTerminated(const tagKivoOmInspectionResult& result) {
    return result.name[sizeof(result.name) - 1] == '\0' && result.status[sizeof(result.status) - 1] == '\0' &&
           result.text[sizeof(result.text) - 1] == '\0';
}

}  // namespace

void Inspect::ASyncDealSendResult(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/,
                                  unsigned int& /*replyLen*/) {
    tagKivoOmInspectionResult result{};
    if (msg->data == nullptr || msg->dataLen != sizeof(result)) {
        return;
    }
    std::memcpy(&result, msg->data, sizeof(result));
    if (!IsTerminated(result)) {
        INSPECT_ERROR("err result data.");
        return;
    }
    INSPECT_INFO("now send result to [%s]", result.name);
    g_resultMgr.SetResult(result);
    if (!HasStatus(result, "running")) {
        return;
    }
    std::vector<InspectClientMsg> requesters;
    g_resultMgr.GetRequesterMsg(result.name, requesters);
    for (const InspectClientMsg& requester : requesters) {
        SendASyncResult(OM_INSPECT_MSG_RUN, requester, msg->data, msg->dataLen);
    }
}
