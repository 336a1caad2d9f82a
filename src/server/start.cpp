// The functions log under different units, so each names its own.
#include "server/start.h"

#include <initializer_list>

#include "base/guard.h"
#include "base/log.h"
#include "base/serving.h"
#include "collect/wylog_backup.h"
#include "handlers/group_catalogue.h"
#include "handlers/handlers.h"
#include "inside/inside_inspection.h"
#include "kivo/os_msg.h"
#include "kivo/os_signal.h"
#include "kivo/os_timer.h"
#include "ominspect/config.h"
#include "result/result_mgr.h"

namespace {

constexpr uint32_t kSigChld = 17;
constexpr uint32_t kSigUsr1 = 10;

}  // namespace

uint32_t InitTimer() {
    constexpr LogUnit kLogUnit{"inspect_server", 18};
    OsSigSet set{};
    if (const uint32_t result = OsSigEmptySet(&set); result != 0) {
        INSPECT_ERROR("OsSigEmptySet fail:%d", static_cast<int>(result));
        return result;
    }
    for (const uint32_t signal : {kSigChld, kSigUsr1}) {
        if (const uint32_t result = OsSigAddSet(&set, signal); result != 0) {
            INSPECT_ERROR("OsSigAddSet fail:%d", static_cast<int>(result));
            return result;
        }
    }
    OsSigSet oldSet{};
    if (const uint32_t result = OsPthreadSigmask(OS_SIG_BLOCK, &set, &oldSet); result != 0) {
        INSPECT_ERROR("OsPthreadSigmask fail:%d", static_cast<int>(result));
        return result;
    }
    if (const uint32_t result = OsTmrManagerInit(1, 0, 0); result != 0) {
        INSPECT_ERROR("Init 10ms timer failed:%d", static_cast<int>(result));
        return result;
    }
    return 0;
}

void InitInspectServer() {
    (void)InspectLogInit("om_inspect");
    InspectBackupWylogInit();
}

void Inspect::Init() {
    constexpr LogUnit kLogUnit{"inspect_dealmsg", 19};
    g_resultMgr.Init();
    g_resultMgr.AddGroup(GetGroupList());
    g_inspectConfigMgr = InspectConfigMgr::GetInstance();
    if (g_inspectConfigMgr == nullptr) {
        INSPECT_INFO("g_inspectConfigMgr instance null");
        return;
    }
    g_inspectConfigMgr->InitInspectConfig();
}

uint32_t InspectTaskEntry() noexcept {
    const Serving serving;
    constexpr LogUnit kLogUnit{"inspect_server", 18};
    INSPECT_ERROR("InspectTaskEntry start... ");
    RunGuarded(kLogUnit, "start", [] {
        InitInspectServer();
        Inspect::Init();
        (void)InitInspectInside();  // the server serves without its own item, too
        Inspect::InitDot();
    });
    (void)OsMsgTaskRoutineByName("iom_srv_task");
    return 0;
}

uint32_t InspectThreadEntry() noexcept {
    const Serving serving;
    constexpr LogUnit kLogUnit{"inspect_server_thread", 25};
    INSPECT_INFO("InspectThreadEntry start... ");
    RunGuarded(kLogUnit, "start", [] {
        (void)InspectLogInit("om_inspect");
        Inspect::Init();
        (void)InitInspectInside();
    });
    (void)OsMsgTaskRoutineByName("iom_srv_task");
    return 0;
}
