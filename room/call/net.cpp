// Every wait is a poll(2) with what is left of the deadline.
#include "call/net.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>

#include "call/limited.h"

namespace room {
namespace {

using ominspect::OtherError;
using ominspect::SystemError;
using ominspect::UniqueFd;

constexpr std::size_t kMaxAddresses = 8;

struct FreeAddresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, FreeAddresses>;

// What the system's look-up said, in a thread that may have been left behind.
struct LookupResult {
    int code = 0;
    int systemError = 0;
    AddressList list;
};

std::string WhyNoAddress(int code, int systemError) {
    switch (code) {
        case EAI_NONAME:
        case EAI_NODATA:
            return "no such name; check it and the name server";
        case EAI_AGAIN:
            return "the name server does not answer; check the network";
        case EAI_SYSTEM:
            return "name not resolved: " + ominspect::SystemText(systemError);
        default:
            return std::string("name not resolved: ") + gai_strerror(code);
    }
}

// Nothing when the connection is there.
std::optional<Error> ConnectOne(int fd, const SocketAddress& address, const Deadline& deadline) {
    if (connect(fd, address.Get(), address.length) == 0) {
        return std::nullopt;
    }
    if (errno != EINPROGRESS) {
        return SystemError();
    }
    if (!WaitFor(fd, POLLOUT, deadline)) {
        return OtherError("no answer to the connection in " + deadline.Text());
    }
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        return SystemError();
    }
    return error == 0 ? std::nullopt : std::optional(SystemError(error));
}

// Whether a call that failed is to be made again after a wait.
bool WouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

class SocketStream : public Stream {
public:
    explicit SocketStream(UniqueFd fd) : fd_(std::move(fd)) {}

    Result<std::size_t> Read(std::span<char> into, const Deadline& deadline) override {
        while (WaitFor(fd_.Get(), POLLIN, deadline)) {
            const ssize_t got = recv(fd_.Get(), into.data(), into.size(), 0);
            if (got >= 0) {
                return static_cast<std::size_t>(got);
            }
            if (!WouldBlock(errno)) {
                return SystemError();
            }
        }
        return OtherError("no answer in " + deadline.Text());
    }

    std::optional<Error> Write(std::string_view data, const Deadline& deadline) override {
        while (!data.empty()) {
            const ssize_t sent = send(fd_.Get(), data.data(), data.size(), MSG_NOSIGNAL);
            if (sent >= 0) {
                data.remove_prefix(static_cast<std::size_t>(sent));
            } else if (!WouldBlock(errno)) {
                return SystemError();
            } else if (!WaitFor(fd_.Get(), POLLOUT, deadline)) {
                return OtherError("takes nothing in " + deadline.Text());
            }
        }
        return std::nullopt;
    }

private:
    UniqueFd fd_;
};

}  // namespace

bool IsAddress(const std::string& text) {
    in6_addr ignored{};
    return inet_pton(AF_INET, text.c_str(), &ignored) == 1 || inet_pton(AF_INET6, text.c_str(), &ignored) == 1;
}

std::string SocketAddress::Ip() const {
    std::array<char, INET6_ADDRSTRLEN> text{};
    const void* address = storage.ss_family == AF_INET6
                              ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(&storage)->sin6_addr)
                              : &reinterpret_cast<const sockaddr_in*>(&storage)->sin_addr;
    const char* shown = inet_ntop(storage.ss_family, address, text.data(), text.size());
    return shown == nullptr ? "" : shown;
}

std::uint16_t SocketAddress::Port() const {
    return ntohs(storage.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&storage)->sin6_port
                                               : reinterpret_cast<const sockaddr_in*>(&storage)->sin_port);
}

Result<std::vector<SocketAddress>> Resolve(const Host& host, int type, const Deadline& deadline, int family,
                                           const Lookup& lookup) {
    LimitedCall<LookupResult> call([lookup, host, type, family] {
        addrinfo hints{};
        hints.ai_family = family;
        hints.ai_socktype = type;
        hints.ai_flags = AI_NUMERICSERV;
        addrinfo* list = nullptr;
        const int code = lookup(host.name.c_str(), std::to_string(host.port).c_str(), &hints, &list);
        const int systemError = errno;
        return LookupResult{code, systemError, AddressList(code == 0 ? list : nullptr)};
    });
    const auto result = call.Wait(deadline);
    if (!result) {
        return OtherError("name not resolved in " + deadline.Text() + "; check the name server");
    }
    if (result->code != 0) {
        return OtherError(WhyNoAddress(result->code, result->systemError));
    }
    std::vector<SocketAddress> addresses;
    for (const addrinfo* entry = result->list.get(); entry != nullptr && addresses.size() < kMaxAddresses;
         entry = entry->ai_next) {
        SocketAddress address;
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.length = entry->ai_addrlen;
        addresses.push_back(address);
    }
    return addresses;
}

Result<UniqueFd> ConnectTo(std::span<const SocketAddress> addresses, const Deadline& deadline) {
    std::optional<Error> first;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        UniqueFd fd(socket(addresses[i].storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        std::optional<Error> error =
            fd ? ConnectOne(fd.Get(), addresses[i], deadline.Share(addresses.size() - i)) : SystemError();
        if (!error) {
            return fd;
        }
        if (!first) {
            first = std::move(error);
        }
    }
    return first.value_or(OtherError("has no address"));
}

Result<UniqueFd> Connect(const Host& host, const Deadline& deadline) {
    const auto addresses = Resolve(host, SOCK_STREAM, deadline);
    return addresses ? ConnectTo(*addresses, deadline) : addresses.Failure();
}

Result<UniqueFd> OpenDatagram(const SocketAddress& peer) {
    UniqueFd fd(socket(peer.storage.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd || connect(fd.Get(), peer.Get(), peer.length) != 0) {
        return SystemError();
    }
    return fd;
}

SocketAddress LocalAddress(int fd) {
    SocketAddress address;
    address.length = sizeof address.storage;
    (void)getsockname(fd, reinterpret_cast<sockaddr*>(&address.storage), &address.length);
    return address;
}

bool WaitFor(int fd, short events, const Deadline& deadline) {
    // A peer that is always ready would otherwise be listened to for ever.
    while (!deadline.IsOver()) {
        pollfd entry{fd, events, 0};
        const int ready = poll(&entry, 1, static_cast<int>(deadline.Left().count()));
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
    }
    return false;
}

std::unique_ptr<Stream> PlainStream(UniqueFd fd) {
    return std::make_unique<SocketStream>(std::move(fd));
}

}  // namespace room
