// A datagram of any name server, with the number of the question in front.
#include <cstddef>
#include <cstdint>
#include <span>

#include "network/dns.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const auto id = static_cast<std::uint16_t>(data[0] << 8U | data[1]);
    const std::span<const std::uint8_t> datagram(data + 2, size - 2);
    const auto whole = room::ReadAnswer(datagram, id, true);
    const auto any = room::ReadAnswer(datagram, id, false);
    // A server that gave the address has answered.
    if (whole == room::DnsAnswer::Answered && any != room::DnsAnswer::Answered) {
        __builtin_trap();
    }
    return 0;
}
