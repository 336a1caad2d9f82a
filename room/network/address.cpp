#include "network/address.h"

#include <cstring>

#include <arpa/inet.h>

namespace room {

std::optional<Address> ParseAddress(const std::string& text, std::uint16_t port, int linkIndex) {
    Address address;
    sockaddr_in v4{};
    sockaddr_in6 v6{};
    if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        std::memcpy(&address.storage, &v4, sizeof v4);
        address.size = sizeof v4;
        return address;
    }
    if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        v6.sin6_scope_id = IN6_IS_ADDR_LINKLOCAL(&v6.sin6_addr) ? static_cast<std::uint32_t>(linkIndex) : 0;
        std::memcpy(&address.storage, &v6, sizeof v6);
        address.size = sizeof v6;
        return address;
    }
    return std::nullopt;
}

}  // namespace room
