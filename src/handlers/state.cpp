// State queries: whether an item is idle.
#include "handlers/handlers.h"
#include "handlers/payload.h"
#include "handlers/reply.h"
#include "result/result_mgr.h"

namespace {

constexpr uint32_t kNotIdle = 0;
constexpr uint32_t kIdle = 1;
constexpr uint32_t kNoName = 2;

}  // namespace

void Inspect::SyncDealGetState(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLen) {
    if (!AllocateReply(sizeof(uint32_t), reply, replyLen)) {
        return;
    }
    WriteReply(kNoName, reply);
    if (HasPayload(*msg)) {
        tagKivoOmInspectionDataItem item{{"", "idle", ""}, 0, 0};  // what an unknown item is answered with
        g_resultMgr.GetResultStatic(PayloadName(*msg), item);
        WriteReply(HasStatus(item.result, "idle") ? kIdle : kNotIdle, reply);
    }
}
