// An owner process for tests, with the engine client library.
//
//     engine_owner PROCESS ITEM[:LIMIT_MS]...
//
// All its items answer "success", "hold" not before SIGUSR1; it prints "holds" meanwhile.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"

namespace {

sigset_t GoOn() {
    sigset_t signals{};
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    return signals;
}

uint32_t Succeed(const char* itemName, const char* /*request*/, tagKivoOmInspectionResult* result) {
    if (std::strcmp(itemName, "hold") == 0) {
        std::puts("holds");
        std::fflush(stdout);
        const sigset_t signals = GoOn();
        int signal = 0;
        sigwait(&signals, &signal);
    }
    std::snprintf(result->status, sizeof result->status, "success");
    return 0;
}

InspectHandlerRecord RecordOf(const std::string& argument) {
    const size_t colon = argument.find(':');
    InspectHandlerRecord record{};
    std::snprintf(record.name, sizeof record.name, "%s", argument.substr(0, colon).c_str());
    record.handler = Succeed;
    record.timeout = colon == std::string::npos ? 0 : static_cast<uint32_t>(std::stoul(argument.substr(colon + 1)));
    return record;
}

}  // namespace

int main(int argc, char** argv) {
    const sigset_t signals = GoOn();
    sigprocmask(SIG_BLOCK, &signals, nullptr);  // in all threads
    if (argc < 2 || OsProcAttach(argv[1]) != OS_MSG_OK || InspectClientInit("items") != OS_MSG_OK) {
        return 1;
    }
    std::vector<InspectHandlerRecord> records;
    for (int i = 2; i < argc; ++i) {
        records.push_back(RecordOf(argv[i]));
    }
    if (InspectRegHandler(records.data(), static_cast<uint32_t>(records.size())) != OS_MSG_OK) {
        return 1;
    }
    return sigsuspend(&signals);  // until it is killed
}
