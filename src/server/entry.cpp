// The two ways to start the server: main, as a process of its own, and KivoInspectTaskMain, inside a host process.
//
// Neither of them ends the background jobs: those end with the process, wherever they are.
#include "ominspect/entry.h"

#include <cstdio>
#include <iterator>

#include "kivo/os_msg.h"
#include "server/dispatch.h"
#include "server/heartbeat.h"
#include "server/start.h"

namespace {

constexpr OsTaskDescriptor processDescriptor[] = {
    {"iom_srv_task", 0, 512, InspectMsgProcess, InspectTaskEntry},
    {"heartbeat", 0, 64, InspectHeartBeatMsgProcess, InspectHeartBeatThread},
};

constexpr OsTaskDescriptor hostedDescriptor[] = {
    {"iom_srv_task", 0, 512, InspectMsgProcess, InspectThreadEntry},
};

void PrintMsgLog(const char* text) {
    (void)std::puts(text);
    (void)std::fflush(stdout);  // a host may have led its output into a file
}

}  // namespace

[[gnu::visibility("default")]] int main() {
    (void)InitTimer();
    OsMsgSetLogLevel(3);
    return static_cast<int>(OsTaskRun("ominspect", processDescriptor, std::size(processDescriptor)));
}

uint32_t KivoInspectTaskMain() {
    (void)InitTimer();
    OsMsgRegLogFunc(PrintMsgLog);
    (void)OsTaskRun("ominspect", hostedDescriptor, std::size(hostedDescriptor));
    return 0;
}
