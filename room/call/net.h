// Sockets that never block beyond a deadline. An error's text says what failed or hung, for people, without the
// server's name: the caller knows it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <netdb.h>
#include <sys/socket.h>

#include "call/deadline.h"
#include "call/host.h"
#include "common/error.h"
#include "common/fd.h"

namespace room {

using ominspect::Error;
using ominspect::Result;

// An IPv4 or IPv6 address without brackets.
bool IsAddress(const std::string& text);

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;

    [[nodiscard]] const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    [[nodiscard]] std::string Ip() const;  // without the port
    [[nodiscard]] std::uint16_t Port() const;
};

using Lookup = std::function<int(const char*, const char*, const addrinfo*, addrinfo**)>;

// The addresses of a host for sockets of the type (SOCK_STREAM, SOCK_DGRAM), at most eight. The system's look-up cannot
// be ended early, so it has a thread of its own, which is left behind when the time is over.
Result<std::vector<SocketAddress>> Resolve(const Host& host, int type, const Deadline& deadline, int family = AF_UNSPEC,
                                           const Lookup& lookup = getaddrinfo);

// A connected stream socket, never blocking; the host's addresses are tried one after the other.
Result<ominspect::UniqueFd> Connect(const Host& host, const Deadline& deadline);

// The same with addresses that are known.
Result<ominspect::UniqueFd> ConnectTo(std::span<const SocketAddress> addresses, const Deadline& deadline);

// A datagram socket that takes only what comes from this address, never blocking.
Result<ominspect::UniqueFd> OpenDatagram(const SocketAddress& peer);

// The own address of a connected socket.
SocketAddress LocalAddress(int fd);

// Waits until the descriptor is ready for `events` (poll(2)) or has failed; false when the time is over first.
bool WaitFor(int fd, short events, const Deadline& deadline);

// A connection to a server, whatever carries it.
class Stream {
public:
    Stream() = default;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    virtual ~Stream() = default;

    // At least one byte, or none at the end of the connection.
    virtual Result<std::size_t> Read(std::span<char> into, const Deadline& deadline) = 0;

    // Everything; nothing when it is done.
    virtual std::optional<Error> Write(std::string_view data, const Deadline& deadline) = 0;
};

std::unique_ptr<Stream> PlainStream(ominspect::UniqueFd fd);

}  // namespace room
