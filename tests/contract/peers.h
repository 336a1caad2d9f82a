// Other processes on the bus, for the tests of the message layer. Each platform implements this once.
#pragma once

#include <memory>
#include <string>

namespace support {

/// Gives the tests a bus: the process under test may join it from now on.
void PrepareBus();

/// A process that runs RunPeer (see peer_process.h), until the object is destroyed.
class Peer {
public:
    /// Returns once its tasks answer. The calling process must be on the bus.
    explicit Peer(const std::string& procName);

    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Kills it with SIGKILL or as that does, and waits for its end. The bus may notice a little later.
    void Kill();

    /// True once it has ended by itself and its task runner had returned OS_MSG_OK.
    bool EndedWell();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace support
