// Other processes on the bus: real ones, on a bus daemon of the tests' own.
#include "peers.h"

#include <chrono>

#include "bus_test.h"
#include "support/child.h"
#include "support/private_bus.h"

namespace support {

void PrepareBus() {
    static const support::PrivateBus bus;
}

struct Peer::Impl {
    support::Child process;
};

Peer::Peer(const std::string& procName)
    : impl_(std::make_unique<Impl>(Impl{support::Child({CONTRACT_PEER_PROGRAM, procName})})) {
    AwaitPeer(procName);
}

Peer::~Peer() = default;

void Peer::Kill() {
    impl_->process.Kill();
}

bool Peer::EndedWell() {
    return impl_->process.Wait(std::chrono::seconds(0)) == 0;
}

}  // namespace support
