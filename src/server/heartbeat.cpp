// No failure stops the task: a missed registration or timer is the process monitor's business.
#include "server/heartbeat.h"

#include "base/field_text.h"
#include "base/log.h"
#include "kivo/os_bounds.h"
#include "kivo/os_monitor.h"
#include "kivo/os_timer.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_heartbeat", 21};
constexpr uint32_t kMonitorTimeout = 30000;
constexpr uint32_t kActivationPeriod = 5;

OsTimerId g_activationTimer;

uint32_t Activate(uint64_t /*userData*/) {
    return OsMonitorProActivate("ominspect");
}

void RegisterProcess() {
    OsMonitorProInfo info{};
    if (const errno_t error = strcpy_s(info.procName, sizeof(info.procName), "ominspect"); error != 0) {
        INSPECT_ERROR("strcpy_s failed, err is %d", error);
    }
    info.timeout = kMonitorTimeout;
    (void)OsMonitorProReg(&info);
}

void StartActivationTimer() {
    const OsTimerParam param{1, {}, 0, kActivationPeriod, 1, Activate};
    if (const uint32_t result = OsTmrCreate(&param, &g_activationTimer); result != 0) {
        INSPECT_ERROR("OsTmrCreate fail:%d", static_cast<int>(result));
    } else {
        INSPECT_INFO("OsTmrCreate succ");
    }
}

void SubscribeToRestarts() {
    const OsMsgSubscription subscription{OS_MSG_EVENT_PROC_RESTART, 0, "omlog", "omlog", "heartbeat"};
    if (const uint32_t result = OsMsgSubscribeEvent(&subscription, 1, 0); result != OS_MSG_OK) {
        INSPECT_ERROR("OsMsgSubscribeEvent failed! ret = %d", static_cast<int>(result));
    }
}

}  // namespace

uint32_t InspectHeartBeatThread() noexcept {
    RegisterProcess();
    StartActivationTimer();
    SubscribeToRestarts();
    (void)OsMsgTaskRoutineByName("heartbeat");
    return 0;
}

uint32_t InspectHeartBeatMsgProcess(TagMsgBlock* msg) noexcept {
    if (msg == nullptr || msg->msgId != OS_MSG_EVENT_PROC_RESTART) {
        INSPECT_ERROR("msg is NULL");  // the same words for both
        return 1;
    }
    const FieldText proc(msg->srcProcName);
    INSPECT_ERROR("proc restart recv msg id:%u from %s", OS_MSG_EVENT_PROC_RESTART, proc.c_str());
    if (proc.View() == "omlog") {
        (void)InspectLogUninit();
        if (const uint32_t result = InspectLogInit("om_inspect"); result != 0) {
            INSPECT_ERROR("InspectLogInit fail : %u ", result);
        }
    }
    return 0;
}
