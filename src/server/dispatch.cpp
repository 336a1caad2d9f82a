// A handler that throws is answered like one that leaves the reply empty.
#include "server/dispatch.h"

#include <algorithm>

#include "base/field_text.h"
#include "base/guard.h"
#include "base/log.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_server", 18};
constexpr uint32_t kRefused = 1;
constexpr uint32_t kSynchronous = 1;

}  // namespace

void CallHandler(std::span<const DispatchRow> rows, TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply,
                 unsigned int& replyLength) {
    const auto row = std::find_if(rows.begin(), rows.end(), [msg](const DispatchRow& candidate) {
        return candidate.msgId == msg->msgId && candidate.handler != nullptr;
    });
    if (row != rows.end()) {
        row->handler(msg, reply, replyLength);
    }
}

uint32_t InspectMsgProcess(TagMsgBlock* msg) noexcept {
    if (msg == nullptr) {
        INSPECT_ERROR("inspect server input is null");
        return kRefused;
    }
    if (!InspectCheckPackagesValidByUid(msg->uid)) {
        INSPECT_ERROR("[%s]Permission deny. Inspect Server Check srcPorcName[%s] uid:[%d] msgId:[%d].",
                      "InspectMsgProcess", FieldText(msg->srcProcName).c_str(), static_cast<int>(msg->uid),
                      static_cast<int>(msg->msgId));
        return kRefused;
    }
    INSPECT_INFO("inspect server recv msg id %u from [%s:%s]", msg->msgId, FieldText(msg->srcProcName).c_str(),
                 FieldText(msg->srcTaskName).c_str());

    std::unique_ptr<unsigned char[]> reply;
    unsigned int replyLength = 0;
    if (!RunGuarded(kLogUnit, "message handler", [&] { CallHandler(kDispatchTable, msg, reply, replyLength); })) {
        reply.reset();
        replyLength = 0;
    }
    if (msg->msgType != kSynchronous) {
        return 0;
    }
    const uint32_t result = OsMsgSynSendResp(msg, reply.get(), replyLength);
    if (result != OS_MSG_OK) {
        INSPECT_ERROR("[ OsMsgSynSendResp ] OsMsgSynSendResp err, ret = #%x ", result);
    }
    return result;
}
