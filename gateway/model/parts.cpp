// A part that stays as it is tells nothing, however often it is set.
#include "model/parts.h"

#include <algorithm>
#include <cstdio>

#include "common/text.h"
#include "ominspect/journal.h"

namespace ominspect::gateway {

const char* WordOf(PartState state) {
    switch (state) {
        case PartState::kOff:
            return "off";
        case PartState::kOk:
            return "ok";
        case PartState::kDegraded:
            return "degraded";
        case PartState::kFailed:
            break;
    }
    return "failed";
}

void Parts::Set(const std::string& name, PartState state, const std::string& text) {
    Part changed;
    {
        const std::lock_guard lock(mutex_);
        const auto [found, isNew] = parts_.try_emplace(name);
        Part& part = found->second;
        if (!isNew && part.state == state && part.text == text) {
            return;
        }
        part = {state, text, std::chrono::system_clock::now()};
        changed = part;
    }
    tell_(name, changed);
}

std::map<std::string, Part> Parts::All() const {
    const std::lock_guard lock(mutex_);
    return parts_;
}

bool Parts::AreWell() const {
    const std::lock_guard lock(mutex_);
    return std::none_of(parts_.begin(), parts_.end(),
                        [](const auto& part) { return part.second.state == PartState::kFailed; });
}

void Log(const std::string& name, const Part& part) {
    const int level = part.state == PartState::kFailed     ? OM_JOURNAL_ERROR
                      : part.state == PartState::kDegraded ? OM_JOURNAL_WARNING
                                                           : OM_JOURNAL_INFO;
    const std::string text = part.text.empty() ? "" : ": " + text::Escaped(part.text);
    (void)std::fprintf(stderr, "%sominspect-gateway: %s is %s%s\n", OmJournalPrefix(level), name.c_str(),
                       WordOf(part.state), text.c_str());
}

}  // namespace ominspect::gateway
