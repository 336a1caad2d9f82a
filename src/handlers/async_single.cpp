// Asynchronous single runs: on a job of their own, with the results sent to the requester.
#include <unistd.h>

#include <string>

#include "handlers/handlers.h"
#include "handlers/payload.h"
#include "handlers/single.h"
#include "ominspect/messages.h"
#include "result/result_mgr.h"
#include "server/send_result.h"
#include "task/inspacet_task.h"

namespace {

void SendItem(const tagKivoOmInspectionDataItem& item, const InspectClientMsg& client) {
    SendASyncResult(OM_INSPECT_MSG_RUN, client, reinterpret_cast<const unsigned char*>(&item.result),
                    sizeof(item.result));
}

// A requester of an item that runs gets two results: "running", and the final one.
void RunSingle(const std::string& requestJson, const InspectClientMsg& client) {
    tagKivoOmInspectionDataItem item{};
    const bool wait = Inspect::InspectSingle(requestJson, item) == 0;
    SendItem(item, client);
    if (!wait) {
        return;
    }
    const std::string name = item.result.name;
    g_resultMgr.AddRequesterMsg(name, client);
    do {
        sleep(1);
    } while (g_resultMgr.UnLockResult(name, item) == 0);
    SendItem(item, client);
}

}  // namespace

void Inspect::ASyncDealSingle(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& /*reply*/,
                              unsigned int& /*replyLen*/) {
    if (HasPayload(*msg)) {
        (void)InspacetTask::StartJob(
            [json = PayloadText(*msg), client = ClientOf(*msg)](TaskData& /*task*/) { RunSingle(json, client); }, true);
    }
}
