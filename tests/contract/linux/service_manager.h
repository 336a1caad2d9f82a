// Plays the service manager at the other end of the notify protocol.
#pragma once

#include <string>
#include <vector>

#include "temp_dir.h"

namespace contract {

/// While it lives, NOTIFY_SOCKET names its socket.
class ServiceManager {
public:
    ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;
    ~ServiceManager();

    /// The notifications since the last call, each as it was sent. They arrive while they are sent: there is
    /// nothing to wait for.
    std::vector<std::string> Notifications() const;

private:
    TempDir dir_;
    int fd_;
};

}  // namespace contract
