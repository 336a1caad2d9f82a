// Synchronous group requests: the empty record, and the stop of a group.
#include "handlers/handlers.h"
#include "handlers/records.h"
#include "handlers/reply.h"
#include "server/log.h"
#include "task/inspacet_task.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};

}  // namespace

void Inspect::SyncDealGroup(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLen) {
    if (msg->data != nullptr && msg->dataLen > 2) {
        (void)AllocateReply(sizeof(tagKivoOmInspectionGroupResult), reply, replyLen);
    }
}

void Inspect::SyncDealStopGroup(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLen) {
    INSPECT_INFO("stop group [%u]", msg->param);
    if (!AllocateReply(sizeof(uint32_t), reply, replyLen)) {
        return;
    }
    WriteReply(InspacetTask::StopTask(msg->param, false), reply);
}
