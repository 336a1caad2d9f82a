// Actions as texts, for people who look for a mistake.
#include "model/script.h"

#include <algorithm>
#include <cstring>

#include "world/journal.h"

namespace sim::model {

std::string Action::Describe() const {
    static constexpr const char* kNames[] = {"log",
                                             "lock the table",
                                             "unlock the table",
                                             "lock the jobs",
                                             "unlock the jobs",
                                             "hold the registry for reading",
                                             "hold the registry for writing",
                                             "release the registry",
                                             "ask the time",
                                             "event",
                                             "send",
                                             "ask",
                                             "answer",
                                             "reply",
                                             "sleep",
                                             "create a thread",
                                             "create a timer",
                                             "subscribe to an event",
                                             "end the handler",
                                             "end the thread"};
    std::string description = kNames[static_cast<size_t>(kind)];
    if (kind == Kind::kLog || kind == Kind::kEvent || kind == Kind::kSend || kind == Kind::kAsk ||
        kind == Kind::kSleep || kind == Kind::kCreate || kind == Kind::kTimer || kind == Kind::kSubscribe ||
        kind == Kind::kHandled) {
        description += " " + std::to_string(number);
    }
    if (kind == Kind::kLog || kind == Kind::kAsk) {
        description += " (" + std::to_string(module) + ")";
    }
    if (unit != nullptr) {
        description += std::string(" ") + unit + ":";
    }
    if (!text.empty()) {
        description += " \"" + text + "\"";
    }
    if (!data.empty()) {
        description += " [" + Shown({reinterpret_cast<const char*>(data.data()), data.size()}, 400) + "] of " +
                       std::to_string(data.size());
    }
    return description;
}

bool Seen::Is(const Action& expected) const {
    return kind == expected.kind && number == expected.number && module == expected.module && text == expected.text &&
           std::ranges::equal(data, expected.data) && (unit == expected.unit || std::strcmp(unit, expected.unit) == 0);
}

Action Seen::AsAction() const {
    return {kind, number, module, unit, std::string(text), Bytes(data.begin(), data.end())};
}

}  // namespace sim::model
