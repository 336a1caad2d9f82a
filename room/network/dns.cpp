// The head of a message says all that is needed: number, kind, code, count of answers.
#include "network/dns.h"

#include <array>

#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>

#include "common/fd.h"

namespace room {
namespace {

constexpr std::size_t kHead = 12;
constexpr std::size_t kMaxLabel = 63;
constexpr std::size_t kMaxName = 253;

void Put16(std::vector<std::uint8_t>& out, unsigned value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

std::optional<DnsAnswer> AwaitAnswer(int fd, std::uint16_t id, bool needsAddress, std::chrono::milliseconds wait) {
    const auto end = std::chrono::steady_clock::now() + wait;
    std::array<std::uint8_t, 4096> datagram{};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        pollfd ready{fd, POLLIN, 0};
        if (left <= 0 || poll(&ready, 1, static_cast<int>(left)) <= 0) {
            return std::nullopt;
        }
        const ssize_t got = recv(fd, datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (got < 0) {
            return std::nullopt;  // such as: nobody listens there
        }
        if (const auto answer = ReadAnswer({datagram.data(), static_cast<std::size_t>(got)}, id, needsAddress)) {
            return answer;
        }
    }
}

}  // namespace

std::optional<std::vector<std::uint8_t>> MakeQuestion(std::uint16_t id, const std::string& name) {
    constexpr unsigned kRecursive = 0x0100;
    constexpr unsigned kAddress = 1;
    constexpr unsigned kServer = 2;
    constexpr unsigned kInternet = 1;
    if (name.size() > kMaxName) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> out;
    for (const unsigned word : {static_cast<unsigned>(id), kRecursive, 1U, 0U, 0U, 0U}) {
        Put16(out, word);
    }
    for (std::size_t begin = 0; begin < name.size();) {
        const std::size_t end = std::min(name.find('.', begin), name.size());
        if (end == begin || end - begin > kMaxLabel) {
            return std::nullopt;
        }
        out.push_back(static_cast<std::uint8_t>(end - begin));
        out.insert(out.end(), name.begin() + static_cast<std::ptrdiff_t>(begin),
                   name.begin() + static_cast<std::ptrdiff_t>(end));
        begin = end + 1;
    }
    out.push_back(0);
    Put16(out, name.empty() ? kServer : kAddress);
    Put16(out, kInternet);
    return out;
}

std::optional<DnsAnswer> ReadAnswer(std::span<const std::uint8_t> datagram, std::uint16_t id, bool needsAddress) {
    constexpr unsigned kIsAnswer = 0x80;
    constexpr unsigned kCode = 0x0F;
    if (datagram.size() < kHead || datagram[0] != id >> 8 || datagram[1] != (id & 0xFF) ||
        (datagram[2] & kIsAnswer) == 0) {
        return std::nullopt;
    }
    const bool hasAnswers = (datagram[3] & kCode) == 0 && (datagram[6] != 0 || datagram[7] != 0);
    return needsAddress && !hasAnswers ? DnsAnswer::NotKnown : DnsAnswer::Answered;
}

DnsAnswer AskServer(const Address& server, const std::string& name, std::chrono::milliseconds wait) {
    const ominspect::UniqueFd fd(socket(server.Family(), SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd || connect(fd.Get(), server.Get(), server.size) != 0) {
        return DnsAnswer::Silent;
    }
    for (int attempt = 0; attempt < 2; ++attempt) {
        std::uint16_t id = 0;
        if (getrandom(&id, sizeof id, 0) != sizeof id) {
            return DnsAnswer::Silent;
        }
        const auto question = MakeQuestion(id, name);
        if (!question) {
            return DnsAnswer::NotKnown;
        }
        if (send(fd.Get(), question->data(), question->size(), MSG_NOSIGNAL) < 0) {
            continue;
        }
        if (const auto answer = AwaitAnswer(fd.Get(), id, !name.empty(), wait)) {
            return *answer;
        }
    }
    return DnsAnswer::Silent;
}

}  // namespace room
