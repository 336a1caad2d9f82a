// A name server on the loopback that sends what it is told to.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "common/fd.h"

namespace support {

class DnsServer {
public:
    using Datagram = std::vector<std::uint8_t>;
    // What to send for a question, in order.
    using Script = std::function<std::vector<Datagram>(const Datagram& question)>;

    // In the calling thread's network namespace, at a port that the kernel picks when it is 0.
    explicit DnsServer(Script script, const char* address = "127.0.0.1", std::uint16_t port = 0)
        : script_(std::move(script)), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_port = htons(port);
        (void)inet_pton(AF_INET, address, &own.sin_addr);
        EXPECT_EQ(bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
        socklen_t size = sizeof own;
        (void)getsockname(socket_.Get(), reinterpret_cast<sockaddr*>(&own), &size);
        port_ = ntohs(own.sin_port);
        thread_ = std::thread([this] { Serve(); });
    }
    ~DnsServer() {
        over_ = true;
        thread_.join();
    }
    DnsServer(const DnsServer&) = delete;
    DnsServer& operator=(const DnsServer&) = delete;

    [[nodiscard]] std::uint16_t Port() const { return port_; }

    // An answer with this code and this many records.
    static Datagram Answer(const Datagram& question, std::uint8_t code, std::uint8_t records) {
        Datagram answer = question;
        answer[2] |= 0x80;
        answer[3] = code;
        answer[7] = records;
        return answer;
    }

private:
    void Serve() {
        while (!over_) {
            pollfd ready{socket_.Get(), POLLIN, 0};
            if (poll(&ready, 1, 20) <= 0) {
                continue;
            }
            Datagram question(512);
            sockaddr_storage from{};
            socklen_t size = sizeof from;
            const ssize_t got =
                recvfrom(socket_.Get(), question.data(), question.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
            question.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
            for (const Datagram& answer : script_(question)) {
                (void)sendto(socket_.Get(), answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&from),
                             size);
            }
        }
    }

    Script script_;
    ominspect::UniqueFd socket_;
    std::uint16_t port_ = 0;
    std::atomic<bool> over_ = false;
    std::thread thread_;
};

}  // namespace support
