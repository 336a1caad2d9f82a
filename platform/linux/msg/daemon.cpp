// The daemon answers in the order of the questions; whoever guesses the cookie of one may answer, too.
#include "msg/daemon.h"

#include <cerrno>
#include <string_view>
#include <utility>

namespace kivo::msg {

namespace {

constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";
constexpr int kMostAttempts = 1000;

using Clock = std::chrono::steady_clock;

// Asks once. The answer may be another's.
MessagePtr AskOnce(sd_bus* bus, const char* method, const char* argument, std::chrono::microseconds time) {
    const MessagePtr question = MakeQuestion(bus, method, argument);
    if (!question) {
        return nullptr;
    }
    sd_bus_message* received = nullptr;
    BusError error;
    if (sd_bus_call(bus, question.get(), static_cast<uint64_t>(time.count()), error.Out(), &received) < 0) {
        return nullptr;
    }
    return MessagePtr(received);
}

// Asks until the daemon itself answers; null when it does not. sd_bus_call takes the first answer to come, whoever sent
// it, and does not say whose an error is. So a forged answer costs one attempt, and after an error `again` decides.
template <typename Again>
MessagePtr AskAndWait(sd_bus* bus, const char* method, const char* argument, Clock::time_point deadline, Again again) {
    for (int i = 0; i < kMostAttempts; ++i) {
        const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            break;
        }
        MessagePtr answer = AskOnce(bus, method, argument, left);
        if (answer && IsFromDaemon(answer.get())) {
            return answer;
        }
        if (!answer && !again()) {
            break;
        }
    }
    return nullptr;
}

// To this question the daemon never answers with an error.
bool HasOwner(sd_bus* bus, const char* name, Clock::time_point deadline) {
    const MessagePtr answer = AskAndWait(bus, "NameHasOwner", name, deadline, [] { return true; });
    int hasOwner = 0;
    return answer && sd_bus_message_read_basic(answer.get(), SD_BUS_TYPE_BOOLEAN, &hasOwner) > 0 && hasOwner != 0;
}

}  // namespace

bool IsFromDaemon(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    return sender != nullptr && std::string_view(sender) == kDaemon;
}

MessagePtr MakeQuestion(sd_bus* bus, const char* method, const char* argument) {
    sd_bus_message* raw = nullptr;
    if (sd_bus_message_new_method_call(bus, &raw, kDaemon, kDaemonPath, kDaemon, method) < 0) {
        return nullptr;
    }
    MessagePtr question(raw);
    return argument == nullptr || sd_bus_message_append(raw, "s", argument) >= 0 ? std::move(question) : nullptr;
}

MessagePtr AskForNames(sd_bus* bus, Deadline deadline) {
    return AskAndWait(bus, "ListNames", nullptr, deadline, [] { return true; });
}

MessagePtr AskAboutName(sd_bus* bus, const char* method, const char* name, Deadline deadline) {
    return AskAndWait(bus, method, name, deadline, [&] { return HasOwner(bus, name, deadline); });
}

int Daemon::Ask(sd_bus* bus, const MessagePtr& question, Answer answer) {
    if (!question) {
        return -ENOMEM;
    }
    uint64_t cookie = 0;
    const int sent = unsent_.Send(bus, question.get(), 0, &cookie);
    if (sent >= 0) {
        asked_.emplace(cookie, std::move(answer));
    }
    return sent;
}

bool Daemon::TakeAnswer(sd_bus_message* message) {
    uint64_t cookie = 0;
    if (asked_.empty() || sd_bus_message_get_reply_cookie(message, &cookie) < 0) {
        return false;
    }
    const auto asked = asked_.find(cookie);
    if (asked == asked_.end()) {
        return false;
    }
    if (IsFromDaemon(message)) {
        const Answer answer = std::move(asked->second);
        asked_.erase(asked);
        answer(message);
    }
    return true;
}

}  // namespace kivo::msg
