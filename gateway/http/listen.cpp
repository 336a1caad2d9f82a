// Only this machine reaches the addresses of its loopback; all others count as reached by everybody.
#include "http/listen.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>

#include "common/text.h"

namespace ominspect::gateway {
namespace {

constexpr int kBacklog = 128;
constexpr mode_t kGroupOnly = 0117;

struct Address {
    sockaddr_storage storage{};
    socklen_t size = sizeof(sockaddr_storage);

    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
    const sockaddr_in& V4() const { return reinterpret_cast<const sockaddr_in&>(storage); }
    const sockaddr_in6& V6() const { return reinterpret_cast<const sockaddr_in6&>(storage); }
};

Address AddressOf(int socket) {
    Address address;
    if (getsockname(socket, address.Get(), &address.size) != 0) {
        address.storage.ss_family = AF_UNSPEC;
    }
    return address;
}

bool IsLoopback(const Address& address) {
    if (address.storage.ss_family == AF_INET) {
        return (ntohl(address.V4().sin_addr.s_addr) >> 24U) == 127;
    }
    return address.storage.ss_family == AF_INET6 && IN6_IS_ADDR_LOOPBACK(&address.V6().sin6_addr) != 0;
}

// In numbers; of another family an empty text.
std::string TextOf(const Address& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.storage.ss_family == AF_INET) {
        (void)inet_ntop(AF_INET, &address.V4().sin_addr, text.data(), text.size());
    } else if (address.storage.ss_family == AF_INET6) {
        (void)inet_ntop(AF_INET6, &address.V6().sin6_addr, text.data(), text.size());
    }
    return text.data();
}

Error At(const std::string& place, const std::string& what) {
    return OtherError("cannot listen on " + text::Escaped(place) + ": " + what);
}

Result<UniqueFd> OpenUnix(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Removes a socket that an earlier process left; any other file stays, and binding fails.
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
        (void)unlink(path.c_str());
    }
    const mode_t before = umask(kGroupOnly);
    const int bound = fd ? bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) : -1;
    const int error = errno;
    (void)umask(before);
    if (bound != 0 || listen(fd.Get(), kBacklog) != 0) {
        return At(path, SystemText(bound != 0 ? error : errno));
    }
    return fd;
}

Result<UniqueFd> OpenTcp(const TcpAddress& tcp) {
    Address address;
    auto& v4 = reinterpret_cast<sockaddr_in&>(address.storage);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address.storage);
    if (inet_pton(AF_INET, tcp.address.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(tcp.port);
        address.size = sizeof v4;
    } else {
        (void)inet_pton(AF_INET6, tcp.address.c_str(), &v6.sin6_addr);
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(tcp.port);
        address.size = sizeof v6;
    }
    UniqueFd fd(socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (!fd || setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(fd.Get(), address.Get(), address.size) != 0 || listen(fd.Get(), kBacklog) != 0) {
        return At(tcp.address + ":" + std::to_string(tcp.port), SystemText(errno));
    }
    return fd;
}

// Nothing: it may be served so.
std::optional<Error> Refused(const HttpServer::Place& place, const HttpSettings& settings, bool hasTokens) {
    if (place.isUnix || IsLoopback(AddressOf(place.socket.Get()))) {
        return std::nullopt;
    }
    if (settings.certificate.empty()) {
        return At(PlaceName(place), "an address that other machines reach takes a certificate and its key");
    }
    if (!hasTokens) {
        return At(PlaceName(place), "an address that other machines reach takes tokens; there are none in " +
                                        text::Escaped(settings.tokens));
    }
    return std::nullopt;
}

}  // namespace

Result<std::vector<HttpServer::Place>> OpenPlaces(const HttpSettings& settings, bool hasTokens) {
    std::vector<Result<UniqueFd>> sockets;
    const int given = sd_listen_fds(1);
    sockets.reserve(static_cast<std::size_t>(std::max(given, 0)));
    for (int i = 0; i < given; ++i) {
        UniqueFd fd(SD_LISTEN_FDS_START + i);
        if (sd_is_socket(fd.Get(), AF_UNSPEC, SOCK_STREAM, 1) <= 0) {
            return At("descriptor " + std::to_string(fd.Get()), "the service manager gave no listening stream socket");
        }
        sockets.emplace_back(std::move(fd));
    }
    if (given <= 0) {
        for (const std::string& path : settings.unixPaths) {
            sockets.push_back(OpenUnix(path));
        }
        for (const TcpAddress& tcp : settings.tcp) {
            sockets.push_back(OpenTcp(tcp));
        }
    }
    std::vector<HttpServer::Place> places;
    for (auto& socket : sockets) {
        if (!socket) {
            return socket.Failure();
        }
        HttpServer::Place& place = places.emplace_back();
        place.socket = std::move(*socket);
        place.isUnix = AddressOf(place.socket.Get()).storage.ss_family == AF_UNIX;
        place.isTls = !place.isUnix && !settings.certificate.empty();
        if (auto error = Refused(place, settings, hasTokens)) {
            return *error;
        }
    }
    return places;
}

std::vector<std::string> HostsOf(const HttpSettings& settings, const std::vector<HttpServer::Place>& places) {
    std::vector<std::string> hosts{"localhost", "127.0.0.1", "::1"};
    for (const HttpServer::Place& place : places) {
        if (!place.isUnix) {
            hosts.push_back(TextOf(AddressOf(place.socket.Get())));
        }
    }
    hosts.insert(hosts.end(), settings.hosts.begin(), settings.hosts.end());
    return hosts;
}

std::string PlaceName(const HttpServer::Place& place) {
    const Address address = AddressOf(place.socket.Get());
    if (address.storage.ss_family == AF_INET) {
        return TextOf(address) + ":" + std::to_string(ntohs(address.V4().sin_port));
    }
    if (address.storage.ss_family == AF_INET6) {
        return "[" + TextOf(address) + "]:" + std::to_string(ntohs(address.V6().sin6_port));
    }
    return reinterpret_cast<const sockaddr_un&>(address.storage).sun_path;
}

}  // namespace ominspect::gateway
