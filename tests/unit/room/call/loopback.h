// Servers of a test on the loopback: what they listen on, and what scripted ones say.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "common/fd.h"

namespace loopback {

// A bound socket of 127.0.0.1 and its port.
struct Bound {
    ominspect::UniqueFd fd;
    std::uint16_t port = 0;
};
Bound BindDatagram();
Bound BindStream();  // not listening: connections are refused
Bound Listen();      // connections are made, though nobody takes them

// A port for a server that cannot be told to take any: free for both kinds a moment ago.
std::uint16_t FreePort();

// Whether something takes connections there.
bool TakesConnections(std::uint16_t port);

// A thread that runs `serve` with the next connection (or with the datagram socket), again and again until the end of
// the object. What `serve` reads and writes ends with the socket.
class Server {
public:
    using Serve = std::function<void(int fd)>;

    static Server OnStream(Serve serve);
    static Server OnDatagrams(Serve serve);

    Server(Server&&) = delete;
    ~Server();

    [[nodiscard]] std::uint16_t Port() const { return bound_.port; }

private:
    Server(Bound bound, bool stream, Serve serve);

    Bound bound_;
    std::atomic<int> connection_{-1};
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

// What comes next, at most 64 KiB; empty at the end.
std::string ReadSome(int fd);

// Everything that comes until `end` is in it; what came when the peer ends before.
std::string ReadUntil(int fd, std::string_view end);

// False when the peer is gone.
bool Send(int fd, std::string_view data);

// One datagram, and an answer to whoever sent it.
struct Datagram {
    std::string text;
    std::function<void(std::string_view)> answer;
};
Datagram ReadDatagram(int fd);  // without a text at the end

}  // namespace loopback
