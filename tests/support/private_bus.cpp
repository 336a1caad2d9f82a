// A message bus of the test's own.
#include "support/private_bus.h"
#include "support/eventually.h"

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace support {

namespace {

constexpr const char* kVariable = "KIVO_BUS_ADDRESS";

// The daemon prints its address as one line once it listens.
std::string AddressIn(const std::string& output) {
    const size_t end = output.find('\n');
    return end == std::string::npos || !output.starts_with("unix:") ? "" : output.substr(0, end);
}

}  // namespace

PrivateBus::PrivateBus()
    : daemon_({DBUS_DAEMON_PROGRAM, std::string("--config-file=") + PRIVATE_BUS_CONFIG, "--nofork", "--nopidfile",
               "--nosyslog", "--print-address"}) {
    Eventually([this] {
        address_ = AddressIn(daemon_.Output());
        return !address_.empty() || daemon_.Wait(std::chrono::seconds(0));
    });
    if (address_.empty()) {
        throw std::runtime_error("the bus daemon does not start: " + daemon_.Output());
    }
    setenv(kVariable, address_.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    unsetenv(kVariable);
    daemon_.Signal(SIGTERM);  // it removes its socket
    daemon_.Wait();
}

}  // namespace support
