// Where a server is.
#pragma once

#include <cstdint>
#include <string>

namespace room {

// A name or address for a text or a URI: in brackets when it is an IPv6 address.
inline std::string InBrackets(const std::string& host) {
    return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

struct Host {
    std::string name;  // or an address, without brackets
    std::uint16_t port = 0;

    [[nodiscard]] std::string Text() const { return InBrackets(name) + ":" + std::to_string(port); }
};

}  // namespace room
