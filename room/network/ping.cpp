// The kernel gives the messages their identifier and checksum, and hands only the own answers back.
#include "network/ping.h"

#include <array>
#include <set>

#include <poll.h>
#include <sys/socket.h>

#include "common/fd.h"
#include "network/address.h"

namespace room {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kCount = 5;
constexpr std::chrono::milliseconds kBetween{50};
constexpr std::chrono::milliseconds kWait{1000};

// Type, code, checksum, identifier, sequence: eight bytes in both protocols.
using Message = std::array<std::uint8_t, 16>;
constexpr std::size_t kHead = 8;
constexpr std::size_t kSequence = 7;

struct Kinds {
    int protocol;
    std::uint8_t request;
    std::uint8_t answer;
};

Kinds KindsOf(int family) {
    return family == AF_INET6 ? Kinds{IPPROTO_ICMPV6, 128, 129} : Kinds{IPPROTO_ICMP, 8, 0};
}

// Takes what comes until then.
void Collect(int fd, const Kinds& kinds, Clock::time_point until, std::set<std::uint8_t>& answered) {
    while (answered.size() < kCount) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        pollfd ready{fd, POLLIN, 0};
        if (left <= 0 || poll(&ready, 1, static_cast<int>(left)) <= 0) {
            return;
        }
        Message message{};
        const ssize_t got = recv(fd, message.data(), message.size(), MSG_DONTWAIT);
        if (got >= static_cast<ssize_t>(kHead) && message[0] == kinds.answer && message[kSequence] < kCount) {
            answered.insert(message[kSequence]);
        }
    }
}

}  // namespace

ominspect::Result<Echoes> PingAddress(const std::string& address, int linkIndex) {
    const auto target = ParseAddress(address, 0, linkIndex);
    if (!target) {
        return ominspect::OtherError("no address");
    }
    const Kinds kinds = KindsOf(target->Family());
    const ominspect::UniqueFd fd(socket(target->Family(), SOCK_DGRAM | SOCK_CLOEXEC, kinds.protocol));
    if (!fd || connect(fd.Get(), target->Get(), target->size) != 0) {
        return ominspect::SystemError();
    }
    std::set<std::uint8_t> answered;
    for (std::uint8_t sequence = 0; sequence < kCount; ++sequence) {
        Message message{};
        message[0] = kinds.request;
        message[kSequence] = sequence;
        (void)send(fd.Get(), message.data(), message.size(), MSG_NOSIGNAL);
        const bool isLast = sequence + 1U == kCount;
        Collect(fd.Get(), kinds, Clock::now() + (isLast ? kWait : kBetween), answered);
    }
    return Echoes{kCount, static_cast<unsigned>(answered.size())};
}

}  // namespace room
