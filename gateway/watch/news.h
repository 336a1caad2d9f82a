// What a session tells of the server, as events.
#pragma once

#include <atomic>
#include <cstdint>

#include "model/feed.h"
#include "model/runs.h"
#include "ominspect/client/session.h"

namespace ominspect::gateway {

class News {
public:
    News(Runs& runs, Feed& feed) : runs_(runs), feed_(feed) {}

    // The functions of another session, on whose thread they are called.
    client::Events EventsOfSession();

    // To be called now and then with the number of events that the session has lost so far: a loss becomes a gap, and
    // the runs that were under way are those of nobody any more.
    void TellLost(std::uint64_t lost);

    // Since the present session began.
    bool IsBusLost() const { return busLost_; }

private:
    Runs& runs_;
    Feed& feed_;
    std::uint64_t lost_ = 0;  // of the present session; of the watcher's thread
    std::atomic<bool> busLost_{false};
};

}  // namespace ominspect::gateway
