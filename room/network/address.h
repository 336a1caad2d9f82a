// Addresses of the internet as the socket functions want them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <netinet/in.h>
#include <sys/socket.h>

namespace room {

struct Address {
    sockaddr_storage storage{};
    socklen_t size = 0;

    [[nodiscard]] const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    [[nodiscard]] int Family() const { return storage.ss_family; }
};

// Of a text like 192.0.2.1 or fe80::1; an address that is good on one link only gets that link's index.
std::optional<Address> ParseAddress(const std::string& text, std::uint16_t port, int linkIndex = 0);

}  // namespace room
