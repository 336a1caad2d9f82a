// The one question and its answers of the H.323 gatekeeper discovery (H.225.0 RAS, in aligned PER). Pure.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace room {

// A gatekeeperRequest of a terminal that wants its answer at an IPv4 address. `sequence` is 1 to 65535.
std::string MakeGatekeeperRequest(std::uint16_t sequence, std::array<std::uint8_t, 4> ip, std::uint16_t port);

enum class GatekeeperReply { Confirm, Reject };

// The answer to the request of this number; nothing when it is something else.
std::optional<GatekeeperReply> ParseGatekeeperReply(std::string_view datagram, std::uint16_t sequence);

}  // namespace room
