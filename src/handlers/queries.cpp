// Questions that clients ask (an item's state, the configured items), and the usage reports ("dots") that some send and
// the server ignores.
#include <algorithm>
#include <cstring>
#include <vector>

#include "base/log.h"
#include "handlers/handlers.h"
#include "handlers/payload.h"
#include "kivo/os_bounds.h"
#include "ominspect/config.h"
#include "result/result_mgr.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};
constexpr uint32_t kNotIdle = 0;
constexpr uint32_t kIdle = 1;
constexpr uint32_t kNoName = 2;

// The items and their number, at most as many as the record has slots.
void FillList(tagKivoOmInspectionItemList& list) {
    const std::vector<tagKivoOmInspectionItem> items = g_inspectConfigMgr->GetInspectItemList();
    const std::size_t count = std::min<std::size_t>(items.size(), OM_INSPECT_LIST_SLOTS);
    list.count = static_cast<uint32_t>(count);
    std::copy_n(items.begin(), count, static_cast<tagKivoOmInspectionItem*>(list.items));
}

}  // namespace

InspectConfigMgr* g_inspectConfigMgr = nullptr;

void Inspect::SyncDealGetState(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength) {
    if (!AllocateReply(sizeof(uint32_t), reply, replyLength)) {
        return;
    }
    WriteReply(kNoName, reply);
    if (HasPayload(*msg)) {
        tagKivoOmInspectionDataItem item{{"", "idle", ""}, 0, 0};  // what an unknown item is answered with
        g_resultMgr.GetResultStatic(PayloadName(*msg), item);
        WriteReply(HasStatus(item.result, "idle") ? kIdle : kNotIdle, reply);
    }
}

void Inspect::GetGroupListLenHandle(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& reply,
                                    unsigned int& replyLength) {
    if (!AllocateReply(sizeof(uint32_t), reply, replyLength)) {
        return;
    }
    if (g_inspectConfigMgr == nullptr) {
        INSPECT_ERROR("g_inspectConfigMgr is nullptr");
        WriteReply(0, reply);
        return;
    }
    WriteReply(static_cast<uint32_t>(g_inspectConfigMgr->GetInspectItemList().size()), reply);
}

void Inspect::GetGroupListHandle(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& reply,
                                 unsigned int& replyLength) {
    tagKivoOmInspectionItemList list;
    (void)memset_s(&list, sizeof(list), 0, sizeof(list));
    if (g_inspectConfigMgr != nullptr) {
        FillList(list);
    }
    if (AllocateReply(sizeof(list), reply, replyLength)) {
        std::memcpy(reply.get(), &list, sizeof(list));
    }
}

void Inspect::InitDot() {}

void Inspect::SetInspectDotReportInfo(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                                      unsigned int& /*replyLength*/) {}

void Inspect::NotifyInspectDotPackage(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                                      unsigned int& /*replyLength*/) {}
