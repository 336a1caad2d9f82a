// Start of the request layer.
#include "handlers/init.h"

#include "handlers/group_catalogue.h"
#include "ominspect/config.h"
#include "result/result_mgr.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};

}  // namespace

InspectConfigMgr* g_inspectConfigMgr = nullptr;

void Inspect::Init() {
    g_resultMgr.Init();
    g_resultMgr.AddGroup(GetGroupList());
    g_inspectConfigMgr = InspectConfigMgr::GetInstance();
    if (g_inspectConfigMgr == nullptr) {
        INSPECT_INFO("g_inspectConfigMgr instance null");
        return;
    }
    g_inspectConfigMgr->InitInspectConfig();
}
