#include "loopback.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace loopback {
namespace {

sockaddr_in Address(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

Bound Bind(int type, std::uint16_t port = 0) {
    Bound bound{ominspect::UniqueFd(socket(AF_INET, type | SOCK_CLOEXEC, 0)), 0};
    sockaddr_in address = Address(port);
    socklen_t length = sizeof address;
    if (!bound.fd || bind(bound.fd.Get(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        getsockname(bound.fd.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("no socket on the loopback");
    }
    bound.port = ntohs(address.sin_port);
    return bound;
}

}  // namespace

Bound BindDatagram() {
    return Bind(SOCK_DGRAM);
}

Bound BindStream() {
    return Bind(SOCK_STREAM);
}

Bound Listen() {
    Bound bound = Bind(SOCK_STREAM);
    if (listen(bound.fd.Get(), 16) != 0) {
        throw std::runtime_error("cannot listen");
    }
    return bound;
}

std::uint16_t FreePort() {
    for (;;) {
        const Bound stream = BindStream();
        try {
            return Bind(SOCK_DGRAM, stream.port).port;
        } catch (const std::runtime_error&) {
            continue;  // taken for datagrams
        }
    }
}

bool TakesConnections(std::uint16_t port) {
    const ominspect::UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = Address(port);
    return connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

Server Server::OnStream(Serve serve) {
    return {Listen(), true, std::move(serve)};
}

Server Server::OnDatagrams(Serve serve) {
    return {BindDatagram(), false, std::move(serve)};
}

Server::Server(Bound bound, bool stream, Serve serve) : bound_(std::move(bound)) {
    thread_ = std::thread([this, stream, serve = std::move(serve)] {
        while (!isOver_) {
            if (!stream) {
                serve(bound_.fd.Get());
                continue;
            }
            const ominspect::UniqueFd peer(accept4(bound_.fd.Get(), nullptr, nullptr, SOCK_CLOEXEC));
            connection_ = peer.Get();
            if (peer && !isOver_) {
                serve(peer.Get());
            }
            connection_ = -1;
        }
    });
}

Server::~Server() {
    isOver_ = true;
    (void)shutdown(bound_.fd.Get(),
                   SHUT_RDWR);  // ends accept(2) and recv(2), though an unconnected one reports an error
    if (const int connection = connection_; connection >= 0) {
        (void)shutdown(connection, SHUT_RDWR);
    }
    thread_.join();
}

std::string ReadSome(int fd) {
    std::string data(65536, '\0');
    const ssize_t got = recv(fd, data.data(), data.size(), 0);
    data.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return data;
}

std::string ReadUntil(int fd, std::string_view end) {
    std::string data;
    while (data.find(end) == std::string::npos) {
        const std::string more = ReadSome(fd);
        if (more.empty()) {
            break;
        }
        data += more;
    }
    return data;
}

bool Send(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t sent = send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        data.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

Datagram ReadDatagram(int fd) {
    std::array<char, 65536> data{};
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const ssize_t got = recvfrom(fd, data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&peer), &length);
    return {std::string(data.data(), got > 0 ? static_cast<std::size_t>(got) : 0), [fd, peer](std::string_view text) {
                (void)sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
            }};
}

}  // namespace loopback
