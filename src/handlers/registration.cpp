// Items come and go: registration by their owners.
#include "handlers/handlers.h"
#include "handlers/payload.h"
#include "result/result_mgr.h"

void Inspect::ASyncDealReg(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/, unsigned int& /*replyLen*/) {
    if (HasPayload(*msg)) {
        g_resultMgr.AddItem(PayloadName(*msg), msg->param, ClientOf(*msg));
    }
}

void Inspect::ASyncDealUnReg(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/,
                             unsigned int& /*replyLen*/) {
    if (HasPayload(*msg)) {
        g_resultMgr.DelItem(PayloadName(*msg));
    }
}
