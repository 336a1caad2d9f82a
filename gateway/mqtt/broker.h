// The line to a broker by libmosquitto, without a thread of its own: whoever has it polls its descriptor.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/fd.h"
#include "mqtt/library.h"
#include "mqtt/line.h"

namespace ominspect::gateway::mqtt {

struct BrokerSettings {
    std::string host;  // a name or an address; empty: `socket`
    std::uint16_t port = 8883;
    std::string socket;       // the path of a Unix socket
    std::string client;       // the client identifier
    std::string login;        // the path of a file: the user in the first line, the password in the second one
    std::string authority;    // the path of the certificates that are trusted; empty: without TLS
    std::string certificate;  // paths; both empty: none of one's own
    std::string key;
    unsigned keepAlive = 30;  // seconds
};

class Broker : public Line {
public:
    using Clock = std::chrono::steady_clock;

    explicit Broker(BrokerSettings settings) : settings_(std::move(settings)) {}
    ~Broker() override { Close(false); }
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    std::optional<Error> Open(LineUser& user, const Outgoing& will) override;
    Result<int> Publish(const Outgoing& message) override;
    std::optional<Error> Subscribe(const std::string& topic) override;
    void Close(bool politely) override;

    // What to poll for, and what came of it. -1: there is nothing to poll.
    int Fd() const;
    short Events() const;
    void Handle(short events);

    // To be called every few seconds: signs of life.
    void Tend();

    // The most that is taken in one message from outside.
    static constexpr std::uint32_t kMostPacket = 16U << 10U;

private:
    struct Lookup;
    struct Destroy {
        void operator()(mosquitto* client) const;
    };

    std::optional<Error> Make(const Outgoing& will);
    std::optional<Error> SetSecrets();
    std::optional<Error> Connect();
    bool BeginLookup();
    void EndLookup();
    void Lose(const std::string& why);
    // Tells a failure of the library.
    void Check(int code);
    std::string TextOf(int code) const;

    void OnConnect(int reason);
    void OnMessage(const mosquitto_message& message, const mosquitto_property* properties);

    const BrokerSettings settings_;
    const Library* mosquitto_ = nullptr;
    LineUser* user_ = nullptr;  // null while it is closed
    std::unique_ptr<mosquitto, Destroy> client_;
    std::shared_ptr<Lookup> lookup_;
    bool isOpen_ = false;        // the broker has accepted it
    bool isConnecting_ = false;  // the socket has not been writable yet
    std::string said_;           // the library's last error in words
    std::string lost_;           // why, told when the library has returned
};

}  // namespace ominspect::gateway::mqtt
