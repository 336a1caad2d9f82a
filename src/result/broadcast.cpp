// The events that the server broadcasts about runs.
#include "result/broadcast.h"

#include "kivo/os_bounds.h"
#include "kivo/os_msg.h"
#include "ominspect/messages.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"ResultMgr", 13};

void Broadcast(uint32_t eventId, const void* data, uint32_t dataLen) {
    OsMsgEvent event{};
    event.eventId = eventId;
    event.dataLen = dataLen;
    event.data = data;
    if (strcpy_s(event.taskName, sizeof(event.taskName), "iom_srv_task") == 0 && OsMsgBroadcastEvent(&event, 1) != 0) {
        INSPECT_ERROR("broadcast err id[%u]", eventId);
    }
}

void BroadcastState(uint32_t state) {
    Broadcast(OM_INSPECT_EVENT_BUSY, &state, sizeof(state));
}

}  // namespace

void BroadcastRun(const tagKivoOmInspectionResult& result) {
    Broadcast(OM_INSPECT_EVENT_RUN, &result, sizeof(result));
}

void BroadcastBusy() {
    BroadcastState(0);
}

void BroadcastIdle() {
    BroadcastState(1);
}
