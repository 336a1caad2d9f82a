// contract_peer <process name>: the other end of the bus as a process of its own.
#include <csignal>
#include <cstdio>

#include "peer_process.h"

void support::EndAbruptly(const std::string& /*procName*/) {
    std::raise(SIGKILL);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: contract_peer <process name>\n");
        return 2;
    }
    const uint32_t result = support::RunPeer(argv[1]);
    if (result != OS_MSG_OK) {
        std::fprintf(stderr, "contract_peer %s: %s\n", argv[1], OsMsgResultText(result));
        return 1;
    }
    return 0;
}
