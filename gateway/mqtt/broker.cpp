// Each connection has a client of the library of its own: what was not acknowledged is forgotten with it, as the
// publisher sends it anew. What a callback learns of a loss is told after the library has returned.
#include "mqtt/broker.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <mqtt_protocol.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "common/text.h"
#include "secret_file.h"

namespace ominspect::gateway::mqtt {
namespace {

constexpr int kQos = 1;
constexpr int kMostIncoming = 16;
constexpr std::size_t kMaxLogin = 4096;

bool IsAddress(const std::string& host) {
    std::array<unsigned char, sizeof(in6_addr)> ignored{};
    return inet_pton(AF_INET, host.c_str(), ignored.data()) == 1 ||
           inet_pton(AF_INET6, host.c_str(), ignored.data()) == 1;
}

// A key with a pass phrase is refused: nobody at a terminal is asked for it.
int NoPassPhrase(char* /*phrase*/, int /*size*/, int /*isWritten*/, void* /*client*/) {
    return 0;
}

std::optional<Error> InFile(const std::string& path, const std::optional<Error>& error) {
    return error ? std::optional(OtherError(text::Escaped(path) + ": " + error->text)) : std::nullopt;
}

class Properties {
public:
    explicit Properties(const Library& library) : mosquitto_(library) {}
    ~Properties() { mosquitto_.property_free_all(&first_); }
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;

    mosquitto_property** Out() { return &first_; }
    const mosquitto_property* Get() const { return first_; }

private:
    const Library& mosquitto_;
    mosquitto_property* first_ = nullptr;
};

}  // namespace

// A look-up of a name cannot be ended early: it has a thread of its own, which may be left behind.
struct Broker::Lookup {
    UniqueFd done{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<int> result{0};
};

void Broker::Destroy::operator()(mosquitto* client) const {
    (*LoadLibrary())->destroy(client);
}

std::string Broker::TextOf(int code) const {
    if (!said_.empty() && code != MOSQ_ERR_CONN_LOST) {
        return said_;
    }
    return code == MOSQ_ERR_ERRNO ? SystemText(errno) : mosquitto_->strerror(code);
}

std::optional<Error> Broker::Open(LineUser& user, const Outgoing& will) {
    Close(false);
    const auto library = LoadLibrary();
    if (!library) {
        return library.Failure();
    }
    mosquitto_ = *library;
    said_.clear();
    lost_.clear();
    if (auto error = Make(will)) {
        client_.reset();
        return error;
    }
    user_ = &user;
    if (settings_.host.empty() || IsAddress(settings_.host) || !BeginLookup()) {
        if (auto error = Connect()) {
            Close(false);
            return error;
        }
    }
    return std::nullopt;
}

std::optional<Error> Broker::Make(const Outgoing& will) {
    client_.reset(mosquitto_->make(settings_.client.c_str(), true, this));
    if (!client_) {
        return SystemError();
    }
    mosquitto_->connect_v5_callback_set(client_.get(),
                                        [](mosquitto*, void* self, int reason, int, const mosquitto_property*) {
                                            static_cast<Broker*>(self)->OnConnect(reason);
                                        });
    mosquitto_->disconnect_v5_callback_set(
        client_.get(), [](mosquitto*, void* self, int reason, const mosquitto_property*) {
            auto& broker = *static_cast<Broker*>(self);
            if (broker.lost_.empty()) {
                broker.lost_ = reason >= 0x80 ? broker.mosquitto_->reason_string(reason) : broker.TextOf(reason);
            }
        });
    mosquitto_->publish_v5_callback_set(
        client_.get(), [](mosquitto*, void* self, int number, int reason, const mosquitto_property*) {
            auto& broker = *static_cast<Broker*>(self);
            broker.user_->Acked(number, reason >= 0x80 ? broker.mosquitto_->reason_string(reason) : "");
        });
    mosquitto_->subscribe_v5_callback_set(
        client_.get(), [](mosquitto*, void* self, int, int count, const int* granted, const mosquitto_property*) {
            auto& broker = *static_cast<Broker*>(self);
            if (count > 0 && granted[0] >= 0x80) {
                broker.lost_ =
                    std::string("requests cannot be subscribed to: ") + broker.mosquitto_->reason_string(granted[0]);
            }
        });
    mosquitto_->message_v5_callback_set(client_.get(), [](mosquitto*, void* self, const mosquitto_message* message,
                                                          const mosquitto_property* properties) {
        static_cast<Broker*>(self)->OnMessage(*message, properties);
    });
    mosquitto_->log_callback_set(client_.get(), [](mosquitto*, void* self, int level, const char* words) {
        if (level == MOSQ_LOG_ERR) {
            static_cast<Broker*>(self)->said_ = words;
        }
    });
    int code = mosquitto_->int_option(client_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    if (code == MOSQ_ERR_SUCCESS) {
        code = mosquitto_->int_option(client_.get(), MOSQ_OPT_RECEIVE_MAXIMUM, kMostIncoming);
    }
    if (code == MOSQ_ERR_SUCCESS) {
        code = mosquitto_->will_set(client_.get(), will.topic.c_str(), static_cast<int>(will.payload.size()),
                                    will.payload.data(), kQos, will.isRetained);
    }
    return code == MOSQ_ERR_SUCCESS ? SetSecrets() : std::optional(OtherError(TextOf(code)));
}

// Read anew for each connection: a password or a certificate may have been changed meanwhile.
std::optional<Error> Broker::SetSecrets() {
    if (!settings_.login.empty()) {
        if (auto error = InFile(settings_.login, CheckSecret(settings_.login))) {
            return error;
        }
        const auto content = ReadSmallFile(settings_.login, kMaxLogin);
        if (!content) {
            return InFile(settings_.login, content.Failure());
        }
        const std::size_t end = std::min(content->find('\n'), content->size());
        const std::string user = content->substr(0, end);
        std::string password = content->substr(std::min(end + 1, content->size()));
        password.erase(std::min(password.find('\n'), password.size()));
        const int code = mosquitto_->username_pw_set(client_.get(), user.c_str(), password.c_str());
        if (user.empty() || code != MOSQ_ERR_SUCCESS) {
            return InFile(settings_.login,
                          OtherError("the user stands in the first line, the password in the second one"));
        }
    }
    if (settings_.authority.empty()) {
        return std::nullopt;
    }
    if (auto error = InFile(settings_.key, CheckSecret(settings_.key))) {
        return error;
    }
    const auto path = [](const std::string& one) { return one.empty() ? nullptr : one.c_str(); };
    const int code = mosquitto_->tls_set(client_.get(), path(settings_.authority), nullptr, path(settings_.certificate),
                                         path(settings_.key), NoPassPhrase);
    return code == MOSQ_ERR_SUCCESS ? std::nullopt
                                    : std::optional(OtherError("authority, certificate or key cannot be read: " +
                                                               std::string(mosquitto_->strerror(code))));
}

std::optional<Error> Broker::Connect() {
    Properties properties(*mosquitto_);
    int code = mosquitto_->property_add_int32(properties.Out(), MQTT_PROP_MAXIMUM_PACKET_SIZE, kMostPacket);
    if (code == MOSQ_ERR_SUCCESS) {
        // Only the connecting function that waits takes properties. Without a host it goes no further than to keep
        // them.
        (void)mosquitto_->connect_bind_v5(client_.get(), nullptr, 0, 0, nullptr, properties.Get());
        const bool isUnix = settings_.host.empty();
        isConnecting_ = true;
        code =
            mosquitto_->connect_bind_async(client_.get(), (isUnix ? settings_.socket : settings_.host).c_str(),
                                           isUnix ? 0 : settings_.port, static_cast<int>(settings_.keepAlive), nullptr);
    }
    if (code == MOSQ_ERR_SUCCESS || code == MOSQ_ERR_CONN_PENDING) {
        return std::nullopt;
    }
    return OtherError(code == MOSQ_ERR_EAI ? gai_strerror(errno) : TextOf(code));
}

bool Broker::BeginLookup() {
    lookup_ = std::make_shared<Lookup>();
    try {
        std::thread([lookup = lookup_, host = settings_.host] {
            addrinfo* found = nullptr;
            lookup->result = getaddrinfo(host.c_str(), nullptr, nullptr, &found);
            if (found != nullptr) {
                freeaddrinfo(found);
            }
            (void)eventfd_write(lookup->done.Get(), 1);
        }).detach();
        return true;
    } catch (const std::system_error&) {
        lookup_.reset();
        return false;
    }
}

void Broker::EndLookup() {
    const int result = lookup_->result;
    lookup_.reset();
    if (result != 0) {
        Lose(settings_.host + ": " + gai_strerror(result));
    } else if (const auto error = Connect()) {
        Lose(error->text);
    }
}

void Broker::Close(bool politely) {
    user_ = nullptr;
    isOpen_ = false;
    lookup_.reset();
    if (client_ && politely) {
        (void)mosquitto_->disconnect(client_.get());
    }
    client_.reset();
}

int Broker::Fd() const {
    return lookup_ ? lookup_->done.Get() : client_ && user_ != nullptr ? mosquitto_->socket(client_.get()) : -1;
}

short Broker::Events() const {
    if (lookup_ || !(isConnecting_ || mosquitto_->want_write(client_.get()))) {
        return POLLIN;
    }
    return POLLIN | POLLOUT;
}

void Broker::Handle(short events) {
    if (user_ == nullptr || events == 0) {
        return;
    }
    if (lookup_) {
        EndLookup();
        return;
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (isConnecting_ && getsockopt(Fd(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error != 0) {
        Lose(SystemText(error));
        return;
    }
    const bool wasConnecting = isConnecting_;
    if ((events & POLLOUT) != 0) {
        isConnecting_ = false;
        Check(mosquitto_->loop_write(client_.get(), 1));
    }
    // The handshake of TLS is carried on by the function that reads.
    if (user_ != nullptr &&
        ((events & (POLLIN | POLLHUP | POLLERR)) != 0 || (wasConnecting && !settings_.authority.empty()))) {
        Check(mosquitto_->loop_read(client_.get(), 1));
    }
    // An open line may still have something to read; a line that is just being opened has failed. The library's TLS
    // would consume the socket's error and try again for ever.
    if (user_ != nullptr && (events & (POLLHUP | POLLERR)) != 0 && (!isOpen_ || (events & POLLIN) == 0)) {
        Lose(isOpen_ ? "the broker has ended the connection" : "the connection was refused");
    }
}

void Broker::Tend() {
    if (client_ && user_ != nullptr && !lookup_ && !isConnecting_) {
        Check(mosquitto_->loop_misc(client_.get()));
    }
}

void Broker::Check(int code) {
    if (!lost_.empty()) {
        Lose(lost_);
    } else if (code != MOSQ_ERR_SUCCESS) {
        Lose(TextOf(code));
    }
}

void Broker::Lose(const std::string& why) {
    LineUser* user = user_;
    std::string text = why;
    if (!isOpen_ && !settings_.authority.empty()) {
        if (!said_.empty() && said_ != why) {
            text += ": " + said_;
        }
        // A broker that refuses the certificate says so with one of several alerts, or just closes the connection.
        if (text.find("certificate") == std::string::npos) {
            text += "; the broker may not accept the certificate";
        }
    }
    Close(false);
    if (user != nullptr) {
        user->Lost(text);
    }
}

void Broker::OnConnect(int reason) {
    if (reason == 0) {
        isOpen_ = true;
        user_->Opened();
    } else {
        lost_ = std::string("the broker refuses: ") + mosquitto_->reason_string(reason);
    }
}

void Broker::OnMessage(const mosquitto_message& message, const mosquitto_property* properties) {
    Incoming incoming;
    incoming.topic = message.topic;
    incoming.payload.assign(static_cast<const char*>(message.payload), static_cast<std::size_t>(message.payloadlen));
    incoming.isRetained = message.retain;
    char* response = nullptr;
    (void)mosquitto_->property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &response, false);
    if (response != nullptr) {
        incoming.responseTopic = response;
        std::free(response);
    }
    void* correlation = nullptr;
    std::uint16_t size = 0;
    (void)mosquitto_->property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &size, false);
    if (correlation != nullptr) {
        incoming.correlation.assign(static_cast<const char*>(correlation), size);
        std::free(correlation);
    }
    user_->Came(std::move(incoming));
}

Result<int> Broker::Publish(const Outgoing& message) {
    if (!client_ || user_ == nullptr) {
        return OtherError("there is no connection");
    }
    Properties properties(*mosquitto_);
    if (!message.correlation.empty() &&
        mosquitto_->property_add_binary(properties.Out(), MQTT_PROP_CORRELATION_DATA, message.correlation.data(),
                                        static_cast<std::uint16_t>(message.correlation.size())) != MOSQ_ERR_SUCCESS) {
        return SystemError(ENOMEM);
    }
    int number = 0;
    const int code =
        mosquitto_->publish_v5(client_.get(), &number, message.topic.c_str(), static_cast<int>(message.payload.size()),
                               message.payload.data(), kQos, message.isRetained, properties.Get());
    switch (code) {
        case MOSQ_ERR_SUCCESS:
            return number;
        case MOSQ_ERR_INVAL:
        case MOSQ_ERR_MALFORMED_UTF8:
        case MOSQ_ERR_PAYLOAD_SIZE:
        case MOSQ_ERR_OVERSIZE_PACKET:
            return WrongUse(mosquitto_->strerror(code));
        default:
            return OtherError(TextOf(code));
    }
}

std::optional<Error> Broker::Subscribe(const std::string& topic) {
    const int code =
        mosquitto_->subscribe_v5(client_.get(), nullptr, topic.c_str(), kQos, MQTT_SUB_OPT_SEND_RETAIN_NEVER, nullptr);
    return code == MOSQ_ERR_SUCCESS ? std::nullopt : std::optional(OtherError(TextOf(code)));
}

}  // namespace ominspect::gateway::mqtt
