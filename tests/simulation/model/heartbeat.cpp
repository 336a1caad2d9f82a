// The heartbeat's task: no failure of its start stops it. Its registration with the monitor and the log's reopening are
// no actions.
#include "model/part.h"
#include "world/outcome.h"

namespace sim::model {

using Kind = Action::Kind;

Script<void> Part::Heartbeat() {
    const Seen& timer = co_await CreateTimer(5);
    if (timer.result == 0) {
        co_await LogHeartbeat(3, "OsTmrCreate succ");
    } else {
        Reached("heartbeat: no timer");
        const uint32_t code = timer.result;
        co_await LogHeartbeat(1, "OsTmrCreate fail:" + std::to_string(code));
    }
    const Seen& subscribed = co_await Subscribe(OS_MSG_EVENT_PROC_RESTART);
    if (subscribed.result != OS_MSG_OK) {
        Reached("heartbeat: not subscribed");
        const auto code = static_cast<int32_t>(subscribed.result);
        co_await LogHeartbeat(1, "OsMsgSubscribeEvent failed! ret = " + std::to_string(code));
    }
}

Script<void> Part::Restart(std::string proc) {
    co_await LogHeartbeat(1, "proc restart recv msg id:2097154 from " + proc);
    co_await Handled(0);
}

}  // namespace sim::model
