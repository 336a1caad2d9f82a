// Whether the server is on the bus. It tells nothing when it leaves, so it is asked now and then.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "ominspect/client/session.h"

namespace ominspect {

// Used by one thread at a time; must not outlive its session.
class Presence {
public:
    // A session that listens to the server's events. Every question is asked in the name of `asker`, of which the
    // server knows no item.
    Presence(client::Session& session, std::string asker);

    // Asks for the first time.
    void Begin() { Ask(); }

    // Calls `tell` with each change since the last call: that the server left, that it started. Asks again when it is
    // time to, less and less often while the server is too busy to answer, as each question stays in its queue.
    void Follow(const std::function<void(bool present)>& tell);

    bool IsPresent() const { return present_; }
    const std::string& AbsenceText() const { return absence_; }  // why it is not there

private:
    using Clock = std::chrono::steady_clock;

    void Ask();

    client::Session& session_;
    const std::string asker_;
    std::uint64_t starts_;
    bool present_ = true;
    std::string absence_;
    std::chrono::seconds period_;
    Clock::time_point next_;
};

}  // namespace ominspect
