// The texts of one OPTIONS request and of the answers to it (RFC 3261). Pure: who carries them is call_sip.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace room {

enum class SipTransport { Udp, Tcp, Tls };

// "udp", "tcp" or "tls".
std::string_view TransportWord(SipTransport transport);

struct SipRequest {
    SipTransport transport;
    std::string server;      // name or address, without brackets
    std::uint16_t port = 0;  // 0 leaves it out of the request's address
    std::string user;        // may be empty
    std::string localIp;
    std::uint16_t localPort = 0;
    // What the answer is recognised by; without blanks, each new for each request.
    std::string branch;  // begins with "z9hG4bK"
    std::string callId;
    std::string fromTag;
    unsigned sequence = 1;
};

// Nothing when a part cannot stand in a request.
std::optional<std::string> MakeOptions(const SipRequest& request);

// What is taken from an answer.
struct SipReply {
    int status = 0;      // 100 to 699
    std::string reason;  // as it was sent
    std::string branch;  // of the top Via
    std::string callId;
    std::string fromTag;
    std::string method;  // of the CSeq
    std::string sequence;
    std::size_t vias = 0;
};

// One whole message; nothing when it is no answer or lacks what an answer must have.
std::optional<SipReply> ParseSipReply(std::string_view message);

// Whether the answer belongs to the request (17.1.3, 8.1.3.3): the same branch and method, and the same call; exactly
// one Via, since another one is for somebody else.
bool Answers(const SipReply& reply, const SipRequest& request);

// The first message of a stream: its length, blank lines before it included (7.5).
enum class Framing { Whole, Incomplete, Broken };
struct SipFrame {
    Framing framing;
    std::size_t start = 0;
    std::size_t length = 0;  // from `start`
};
// Broken: no Content-Length where a stream needs one (20.14), two different ones, or more than `maxSize` bytes.
SipFrame FrameSipMessage(std::string_view stream, std::size_t maxSize);

}  // namespace room
