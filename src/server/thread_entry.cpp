// Entry of task "iom_srv_task" inside a host process: no system-log backup, which is the host's business.
#include "server/start.h"

#include "handlers/init.h"
#include "inside/inside_inspection.h"
#include "kivo/os_msg.h"
#include "server/guard.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"inspect_server_thread", 25};

}  // namespace

uint32_t InspectThreadEntry() noexcept {
    INSPECT_INFO("InspectThreadEntry start... ");
    RunGuarded(kLogUnit, "start", [] {
        (void)InspectLogInit("om_inspect");
        Inspect::Init();
        (void)InitInspectInside();  // the server serves without its own item, too
    });
    (void)OsMsgTaskRoutineByName("iom_srv_task");
    return 0;
}
