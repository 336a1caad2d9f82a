// Entry of task "iom_srv_task" in a process of its own.
#include "server/start.h"

#include "collect/wylog_backup.h"
#include "handlers/init.h"
#include "inside/inside_inspection.h"
#include "kivo/os_msg.h"
#include "server/guard.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_server", 18};

}  // namespace

void InitInspectServer() {
    (void)InspectLogInit("om_inspect");
    InspectBackupWylogInit();
}

uint32_t InspectTaskEntry() noexcept {
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
