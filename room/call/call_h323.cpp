// The gatekeeper is asked as every terminal asks for it (GRQ over UDP). Of a peer only the connection to its call port
// is looked at: to say more, a call would have to be made.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <random>

#include <netinet/in.h>
#include <poll.h>

#include "call/call.h"
#include "call/net.h"
#include "call/ras.h"

namespace room {
namespace {

using ominspect::SystemError;

// The request is sent so often in the time that there is.
constexpr std::size_t kTries = 3;

Finding Judge(const std::string& name, GatekeeperReply reply) {
    return reply == GatekeeperReply::Confirm
               ? Success("gatekeeper " + name + " confirms that it serves this room")
               : Warn("gatekeeper " + name + " answers, and rejects this room; check its rules");
}

Finding AskGatekeeper(const std::string& name, const SocketAddress& address, const Deadline& deadline) {
    const auto fd = OpenDatagram(address);
    if (!fd) {
        return FailOf(name, fd.Failure().text);
    }
    const SocketAddress local = LocalAddress(fd->Get());
    std::array<std::uint8_t, 4> ip{};
    std::memcpy(ip.data(), &reinterpret_cast<const sockaddr_in*>(&local.storage)->sin_addr, ip.size());
    const auto sequence = static_cast<std::uint16_t>(1 + std::random_device()() % 65535);
    const std::string request = MakeGatekeeperRequest(sequence, ip, local.Port());
    std::array<char, 4096> datagram{};
    for (std::size_t tries = kTries; tries > 0; --tries) {
        if (send(fd->Get(), request.data(), request.size(), 0) < 0) {
            return FailOf(name, SystemError().text);
        }
        const Deadline untilResend = deadline.Share(tries);
        while (WaitFor(fd->Get(), POLLIN, untilResend)) {
            const ssize_t got = recv(fd->Get(), datagram.data(), datagram.size(), 0);
            if (got < 0 && errno != EAGAIN && errno != EINTR) {
                return FailOf(name, SystemError().text);
            }
            const auto reply =
                ParseGatekeeperReply({datagram.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))}, sequence);
            if (reply) {
                return Judge(name, *reply);
            }
        }
    }
    return FailOf(name, "the gatekeeper does not answer in " + deadline.Text());
}

Finding CheckGatekeeper(const Host& host, const Deadline& deadline) {
    const std::string name = host.Text();
    // The request names an IPv4 address for its answer.
    const auto addresses = Resolve(host, SOCK_DGRAM, deadline, AF_INET);
    if (!addresses) {
        return FailOf(name, addresses.Failure().text);
    }
    Finding finding = FailOf(name, "has no address");
    for (std::size_t i = 0; i < addresses->size() && finding.status == Status::Fail; ++i) {
        finding = AskGatekeeper(name, (*addresses)[i], deadline.Share(addresses->size() - i));
    }
    return finding;
}

Finding CheckPeer(const Host& host, const Deadline& deadline) {
    const auto fd = Connect(host, deadline);
    return fd ? Success("H.323 peer " + host.Text() + " takes connections; no call was tried")
              : FailOf(host.Text(), fd.Failure().text);
}

}  // namespace

Finding CheckH323(const CallSettings& settings) {
    const Deadline deadline(settings.limit);
    if (settings.gatekeeper) {
        return CheckGatekeeper(*settings.gatekeeper, deadline);
    }
    if (settings.h323Peer) {
        return CheckPeer(*settings.h323Peer, deadline);
    }
    return Unknown("not known: name Call/Gatekeeper or Call/H323Peer in the room's file");
}

}  // namespace room
