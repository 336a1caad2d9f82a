// What the owners of items send: registrations, removals and results.
#include <cstring>
#include <vector>

#include "base/log.h"
#include "base/records.h"
#include "base/send_result.h"
#include "handlers/handlers.h"
#include "handlers/payload.h"
#include "ominspect/messages.h"
#include "result/result_mgr.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};

bool IsTerminated(const tagKivoOmInspectionResult& result) {
    return result.name[sizeof(result.name) - 1] == '\0' && result.status[sizeof(result.status) - 1] == '\0' &&
           result.text[sizeof(result.text) - 1] == '\0';
}

}  // namespace

void Inspect::ASyncDealReg(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/,
                           unsigned int& /*replyLength*/) {
    if (HasPayload(*msg)) {
        g_resultMgr.AddItem(PayloadName(*msg), msg->param, ClientOf(*msg));
    }
}

void Inspect::ASyncDealUnReg(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/,
                             unsigned int& /*replyLength*/) {
    if (HasPayload(*msg)) {
        g_resultMgr.DelItem(PayloadName(*msg));
    }
}

void Inspect::ASyncDealSendResult(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/,
                                  unsigned int& /*replyLength*/) {
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
