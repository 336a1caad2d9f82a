// Plays the service manager at the other end of the notify protocol.
#pragma once

#include <string>
#include <vector>

#include "support/temp_folder.h"

namespace support {

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
    TempFolder dir_;
    int fd_;
};

}  // namespace support
