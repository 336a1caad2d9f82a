#include "linux/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace support {

ServiceManager::ServiceManager() : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const std::string path = dir_ / "notify";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd_);
        throw std::runtime_error("cannot bind the notify socket");
    }
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
}

ServiceManager::~ServiceManager() {
    unsetenv("NOTIFY_SOCKET");
    close(fd_);
}

std::vector<std::string> ServiceManager::Notifications() const {
    std::vector<std::string> notifications;
    std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = recv(fd_, buffer.data(), buffer.size(), 0)) >= 0;) {
        notifications.emplace_back(buffer.data(), static_cast<size_t>(got));
    }
    return notifications;
}

}  // namespace support
