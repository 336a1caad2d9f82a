// The configured items, for clients that ask which there are.
#include <algorithm>
#include <cstring>
#include <vector>

#include "handlers/handlers.h"
#include "handlers/init.h"
#include "handlers/reply.h"
#include "kivo/os_bounds.h"
#include "ominspect/config.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};

// The items and their number, at most as many as the record has slots.
void FillList(tagKivoOmInspectionItemList& list) {
    const std::vector<tagKivoOmInspectionItem> items = g_inspectConfigMgr->GetInspectItemList();
    const std::size_t count = std::min<std::size_t>(items.size(), OM_INSPECT_LIST_SLOTS);
    list.count = static_cast<uint32_t>(count);
    std::copy_n(items.begin(), count, static_cast<tagKivoOmInspectionItem*>(list.items));
}

}  // namespace

void Inspect::GetGroupListLenHandle(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& reply,
                                    unsigned int& replyLen) {
    if (!AllocateReply(sizeof(uint32_t), reply, replyLen)) {
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
                                 unsigned int& replyLen) {
    tagKivoOmInspectionItemList list;
    (void)memset_s(&list, sizeof(list), 0, sizeof(list));
    if (g_inspectConfigMgr != nullptr) {
        FillList(list);
    }
    if (AllocateReply(sizeof(list), reply, replyLen)) {
        std::memcpy(reply.get(), &list, sizeof(list));
    }
}
