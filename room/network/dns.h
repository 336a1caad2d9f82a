// One question to one name server.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "network/address.h"
#include "network/network_probe.h"

namespace room {

// The question for a name's address; for an empty name, for the servers of the root. Nothing for a text that is no
// name.
std::optional<std::vector<std::uint8_t>> MakeQuestion(std::uint16_t id, const std::string& name);

// What a datagram says to a question with this number; nothing when it is no answer to it. Any server may have sent it.
std::optional<DnsAnswer> ReadAnswer(std::span<const std::uint8_t> datagram, std::uint16_t id, bool needsAddress);

// Asks twice, and waits this long each time.
DnsAnswer AskServer(const Address& server, const std::string& name, std::chrono::milliseconds wait);

}  // namespace room
