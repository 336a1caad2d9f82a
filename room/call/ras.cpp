// Where the bits are:
//
//   RasMessage: 1 bit extension, 5 bits choice (0 gatekeeperRequest, 1 gatekeeperConfirm, 2 gatekeeperReject)
//   gatekeeperRequest: 1 bit extension, 4 bits for nonStandardData, gatekeeperIdentifier, callServices, endpointAlias
//   gatekeeperConfirm, gatekeeperReject: 1 bit extension, 2 bits for nonStandardData, gatekeeperIdentifier
//   then, from the next whole byte: requestSeqNum (its value minus 1) in two bytes, and protocolIdentifier
#include "call/ras.h"

namespace room {
namespace {

constexpr std::size_t kHead = 4;  // the flags and the number

char Byte(unsigned value) {
    return static_cast<char>(static_cast<unsigned char>(value & 0xffU));
}

void AddTwoBytes(std::string& out, unsigned value) {
    out += Byte(value >> 8U);
    out += Byte(value);
}

unsigned ByteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

}  // namespace

std::string MakeGatekeeperRequest(std::uint16_t sequence, std::array<std::uint8_t, 4> ip, std::uint16_t port) {
    std::string out(2, '\0');  // choice 0, nothing optional
    AddTwoBytes(out, sequence - 1U);
    // protocolIdentifier: the object identifier 0.0.8.2250.0.4, version 4 of H.225.0.
    out += std::string("\x06\x00\x08\x91\x4a\x00\x04", 7);
    // rasAddress: no extension, choice 0 of 7 (ipAddress); the address begins at a whole byte.
    out += '\0';
    for (const std::uint8_t part : ip) {
        out += Byte(part);
    }
    AddTwoBytes(out, port);
    // endpointType: no extension; of nonStandardData, vendor, gatekeeper, gateway, mcu and terminal the last; the
    // terminal without extension and nonStandardData; no mc, no undefinedNode: 0 000001 0 0 | 0 0.
    AddTwoBytes(out, 0x0200U);
    return out;
}

std::optional<GatekeeperReply> ParseGatekeeperReply(std::string_view datagram, std::uint16_t sequence) {
    // The shortest identifier of the protocol is one byte of length and one of contents.
    if (datagram.size() < kHead + 2) {
        return std::nullopt;
    }
    if ((ByteAt(datagram, 2) << 8U | ByteAt(datagram, 3)) != sequence - 1U) {
        return std::nullopt;
    }
    const unsigned choice = ByteAt(datagram, 0) >> 2U;  // with the extension bit, which must be 0
    // The identifier must be one of H.225.0: 0.0.8.2250.
    static constexpr std::string_view kIdentifier("\x00\x08\x91\x4a", 4);
    const std::size_t length = ByteAt(datagram, kHead);
    if (length < kIdentifier.size() || datagram.size() < kHead + 1 + length ||
        datagram.substr(kHead + 1, kIdentifier.size()) != kIdentifier) {
        return std::nullopt;
    }
    switch (choice) {
        case 1:
            return GatekeeperReply::Confirm;
        case 2:
            return GatekeeperReply::Reject;
        default:
            return std::nullopt;
    }
}

}  // namespace room
