// A message bus of the test's own.
#pragma once

#include <optional>
#include <string>

#include "support/child.h"

namespace support {

/// Starts a bus daemon and puts its address into the environment, as KIVO_BUS_ADDRESS, for this process and its
/// children; ends the daemon and restores the environment. Throws std::runtime_error when no daemon comes up.
class PrivateBus {
public:
    PrivateBus();
    explicit PrivateBus(const std::string& configFile);  // instead of the one for private buses
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    [[nodiscard]] const std::string& Address() const { return address_; }

    /// To the daemon: SIGSTOP makes it silent, SIGCONT ends that.
    void Signal(int signal) const { daemon_.Signal(signal); }

    /// The daemon.
    [[nodiscard]] pid_t Pid() const { return daemon_.Pid(); }

private:
    Child daemon_;
    std::string address_;
    std::optional<std::string> before_;  // the variable's value
};

}  // namespace support
