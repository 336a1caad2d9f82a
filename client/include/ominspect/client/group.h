// Runs a group of items from its start until the server has ended it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "ominspect/client/session.h"

#pragma GCC visibility push(default)

namespace ominspect::client {

struct GroupOptions {
    bool waitForTurn = false;  // ask again while the server runs a group of this name, instead of GroupBusy

    // Called on the calling thread; each may be empty. onStart: a group of `count` requests, from the one at `first`
    // on, has started. onRecord: its record has arrived. onRefused: the server runs another group of this name.
    std::function<void(std::uint32_t taskId, std::size_t first, std::size_t count)> onStart;
    std::function<void(const GroupRecord&)> onRecord;
    std::function<void()> onRefused;
};

// Runs any number of items as successive groups of at most 32, and returns when the server has ended the last one.
// Nothing on success. If it fails while a group runs, at the time limit for instance or when cancelled, it stops the
// group and waits for some seconds. A record that arrives by then is given to onRecord, and the error says whether the
// group has ended. The errors are those of Session::StartGroup and GroupRun::Await. All requests are checked before the
// first group starts. What it throws, for a lack of memory or from a function of the options, comes after the group was
// asked to stop.
std::optional<Error> RunGroup(Session& session, std::span<const Request> requests, const GroupOptions& options,
                              const Limit& limit);

}  // namespace ominspect::client

#pragma GCC visibility pop
