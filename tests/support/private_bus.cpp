#include "support/private_bus.h"
#include "support/eventually.h"

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace support {

namespace {

constexpr const char* kVariable = "KIVO_BUS_ADDRESS";

// The daemon prints its address as one line once it listens, and perhaps warnings before and after it.
std::string AddressIn(const std::string& output) {
    const size_t begin = output.starts_with("unix:") ? 0 : output.find("\nunix:") + 1;
    const size_t end = output.find('\n', begin);
    return output.compare(begin, 5, "unix:") != 0 || end == std::string::npos ? "" : output.substr(begin, end - begin);
}

}  // namespace

PrivateBus::PrivateBus() : PrivateBus(PRIVATE_BUS_CONFIG) {}

PrivateBus::PrivateBus(const std::string& configFile)
    : daemon_({DBUS_DAEMON_PROGRAM, "--config-file=" + configFile, "--nofork", "--nopidfile", "--nosyslog",
               "--print-address"}) {
    Eventually([this] {
        address_ = AddressIn(daemon_.Output());
        return !address_.empty() || daemon_.Wait(std::chrono::seconds(0));
    });
    if (address_.empty()) {
        throw std::runtime_error("the bus daemon does not start: " + daemon_.Output());
    }
    if (const char* before = std::getenv(kVariable)) {
        before_ = before;
    }
    setenv(kVariable, address_.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    if (before_) {
        setenv(kVariable, before_->c_str(), 1);
    } else {
        unsetenv(kVariable);
    }
    daemon_.Signal(SIGTERM);  // it removes its socket
    daemon_.Wait();
}

}  // namespace support
