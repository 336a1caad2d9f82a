// Other processes on the bus, simulated.
#include "peers.h"

#include <optional>

#include "bus_test.h"
#include "fake/fake.h"
#include "peer_process.h"

namespace support {

void EndAbruptly(const std::string& procName) {
    kivo::fake::KillProcess(procName);
}

void PrepareBus() {
    kivo::fake::RequireAttach();
}

struct Peer::Impl {
    std::string name;
    std::optional<uint32_t> result;  // of RunPeer, once that has returned
};

Peer::Peer(const std::string& procName) : impl_(std::make_unique<Impl>(Impl{procName, {}})) {
    kivo::fake::StartProcess([this] { impl_->result = RunPeer(impl_->name); });
    AwaitPeer(procName);
}

Peer::~Peer() {
    Kill();
}

void Peer::Kill() {
    kivo::fake::Settle();
    if (!impl_->result) {
        kivo::fake::KillProcess(impl_->name);
        WaitFor([this] { return impl_->result.has_value(); });
    }
}

bool Peer::EndedWell() {
    return impl_->result == OS_MSG_OK;
}

}  // namespace support
