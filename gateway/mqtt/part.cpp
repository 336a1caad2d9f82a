#include "mqtt/part.h"

#include <algorithm>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace ominspect::gateway {
namespace {

using Clock = mqtt::Publisher::Clock;

constexpr const char* kPart = "mqtt";
constexpr std::chrono::seconds kTend{5};

std::string TerminalOf(const MqttSettings& settings) {
    char name[256] = "";
    if (!settings.terminal.empty() || gethostname(name, sizeof name - 1) != 0) {
        return settings.terminal;
    }
    return name;
}

mqtt::BrokerSettings BrokerOf(const MqttSettings& settings) {
    mqtt::BrokerSettings broker;
    broker.host = settings.host;
    broker.port = settings.port;
    broker.socket = settings.socket;
    broker.client = "ominspect-" + mqtt::EscapeLevel(TerminalOf(settings));
    broker.login = settings.login;
    broker.authority = settings.authority;
    broker.certificate = settings.certificate;
    broker.key = settings.key;
    return broker;
}

}  // namespace

MqttPart::MqttPart(const MqttSettings& settings, const std::string& historyPath, const Picture& picture, Parts& parts,
                   Feed& feed)
    : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      backlog_(historyPath),
      broker_(BrokerOf(settings)),
      publisher_(
          {TerminalOf(settings), settings.rate, settings.position, settings.roles}, picture, backlog_, broker_, this,
          [&parts](PartState state, const std::string& text) { parts.Set(kPart, state, text); }, feed.ToldSeq(),
          Clock::now()) {
    feed.Subscribe([this](const Event& event) {
        backlog_.Tell(event);
        publisher_.Tell(event);
        Wake();
    });
}

void MqttPart::Start(Operations& operations, Collection* collection) {
    operations_ = &operations;
    collection_ = collection;
    // What it throws, for a lack of memory, ends the process: it may come through the library, which is C and would
    // keep its locks.
    thread_ = std::thread([this] { Work(); });
    (void)pthread_setname_np(thread_.native_handle(), "mqtt");
}

void MqttPart::Stop() {
    isEnding_ = true;
    Wake();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void MqttPart::Wake() {
    (void)eventfd_write(wake_.Get(), 1);
}

void MqttPart::Work() {
    bool isEnding = false;
    while (!publisher_.IsOver()) {
        if (isEnding_ && !std::exchange(isEnding, true)) {
            publisher_.BeginEnd(Clock::now());
        }
        Wait(publisher_.Go(Clock::now()));
    }
}

void MqttPart::Wait(Clock::time_point wake) {
    const auto now = Clock::now();
    const int fd = broker_.Fd();
    pollfd fds[] = {{wake_.Get(), POLLIN, 0}, {fd, fd < 0 ? short{0} : broker_.Events(), 0}};
    const auto limit = std::min<Clock::duration>(kTend, std::max(wake, now) - now);
    if (publisher_.IsOver()) {
        return;
    }
    (void)poll(fds, 2, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(limit).count()));
    eventfd_t count = 0;
    (void)eventfd_read(wake_.Get(), &count);
    broker_.Handle(fds[1].revents);
    broker_.Tend();
}

Result<std::uint64_t> MqttPart::Run(const std::string& item, const std::string& argument, const std::string& who) {
    Order order{OperationKind::kRun, {item}, argument, std::chrono::seconds(310), who};
    return operations_->Begin(std::move(order));
}

Result<std::string> MqttPart::Collect(const std::string& who) {
    if (collection_ == nullptr) {
        return Error{ErrorCode::kRefused, "collecting is switched off"};
    }
    if (const auto error = collection_->Begin(who)) {
        return *error;
    }
    return collection_->Document().Read()["begin"].Text().value_or("");
}

}  // namespace ominspect::gateway
