// Group requests: id 1 gets an empty record, id 19 starts the group on a background job, id 6 stops that job.
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/records.h"
#include "handlers/group_catalogue.h"
#include "handlers/group_run.h"
#include "handlers/handlers.h"
#include "handlers/payload.h"
#include "result/result_mgr.h"
#include "task/inspacet_task.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};
constexpr uint32_t kNoWorker = 14;
constexpr uint32_t kRefused = 16;

}  // namespace

void Inspect::SyncDealGroup(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength) {
    if (msg->data != nullptr && msg->dataLen > 2) {
        (void)AllocateReply(sizeof(tagKivoOmInspectionGroupResult), reply, replyLength);
    }
}

void Inspect::ASyncDealGroup(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength) {
    if (msg->data == nullptr || msg->dataLen <= 2 || !AllocateReply(sizeof(uint32_t), reply, replyLength)) {
        return;
    }
    GroupRequest request{PayloadTexts(*msg), ClientOf(*msg), {}};
    request.groupName = GetGroupName(request.texts);
    const std::string groupName = request.groupName;
    if (g_resultMgr.StartGroup(groupName) > 1) {
        g_resultMgr.StopGroup(groupName);  // also ends what this request did not start: a refused start stops the group
        WriteReply(kRefused, reply);
        return;
    }
    uint32_t answer = InspacetTask::StartJob(
        [request = std::move(request)](TaskData& task) mutable { RunGroup(std::move(request), task); }, false);
    if (answer == 0) {
        g_resultMgr.StopGroup(groupName);
        answer = kNoWorker;
    }
    WriteReply(answer, reply);
    INSPECT_INFO("start group [%u]", answer);
}

void Inspect::SyncDealStopGroup(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength) {
    INSPECT_INFO("stop group [%u]", msg->param);
    if (!AllocateReply(sizeof(uint32_t), reply, replyLength)) {
        return;
    }
    WriteReply(InspacetTask::StopTask(msg->param, false), reply);
}
