// Actions as texts, for people who look for a mistake.
#include "model/script.h"

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
                                             "end the handler",
                                             "end the thread"};
    std::string description = kNames[static_cast<size_t>(kind)];
    if (kind == Kind::kLog || kind == Kind::kEvent || kind == Kind::kSend || kind == Kind::kAsk ||
        kind == Kind::kSleep || kind == Kind::kCreate || kind == Kind::kHandled) {
        description += " " + std::to_string(number);
    }
    if (kind == Kind::kLog || kind == Kind::kAsk) {
        description += " (" + std::to_string(module) + ")";
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

bool Action::IsSame(const Action& other) const {
    return kind == other.kind && number == other.number && module == other.module && text == other.text &&
           data == other.data;
}

}  // namespace sim::model
