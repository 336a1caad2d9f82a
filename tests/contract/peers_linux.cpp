// Other processes on the bus: real ones, on a bus daemon of the tests' own.
#include "peers.h"

#include <chrono>

#include "bus_test.h"
#include "support/child.h"
#include "support/private_bus.h"

namespace contract {

void PrepareBus() {
    static const kivo::test::PrivateBus bus;
}

struct Peer::Impl {
    kivo::test::Child process;
};

Peer::Peer(const std::string& procName)
    : impl_(std::make_unique<Impl>(Impl{kivo::test::Child({CONTRACT_PEER_PROGRAM, procName})})) {
    AwaitPeer(procName);
}

Peer::~Peer() = default;

void Peer::Kill() {
    impl_->process.Kill();
}

bool Peer::EndedWell() {
    return impl_->process.Wait(std::chrono::seconds(0)) == 0;
}

}  // namespace contract
