// How the parts of the gateway are: each for itself, told to the journal and to everybody who looks.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "common/times.h"

namespace ominspect::gateway {

enum class PartState { kOff, kOk, kDegraded, kFailed };
const char* WordOf(PartState state);  // "off", "ok", "degraded", "failed"

struct Part {
    PartState state = PartState::kOff;
    std::string text;  // what is wrong; empty when nothing is
    TimePoint since;
};

// Any thread.
class Parts {
public:
    // `tell` is called after each change, without a lock held.
    using Tell = std::function<void(const std::string& name, const Part& part)>;
    explicit Parts(Tell tell) : tell_(std::move(tell)) {}

    void Set(const std::string& name, PartState state, const std::string& text = "");
    std::map<std::string, Part> All() const;

    // Whether no part has failed.
    bool AreWell() const;

private:
    const Tell tell_;
    mutable std::mutex mutex_;  // guards `parts_`
    std::map<std::string, Part> parts_;
};

// Writes a line to the journal: an error for a part that failed, a warning for one that is degraded.
void Log(const std::string& name, const Part& part);

}  // namespace ominspect::gateway
