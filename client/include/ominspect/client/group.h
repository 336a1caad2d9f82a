// The whole life of a group run: turn by turn, from its start to the server being rid of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "ominspect/client/session.h"

namespace ominspect::client {

struct GroupOptions {
    bool waitForTurn = false;  // ask again while the server runs a group of this name, instead of GroupBusy

    // Called on the calling thread, each may be empty: a group of `count` requests, from the one at `first` on, has
    // started; its record arrived; the server refuses it for now.
    std::function<void(std::uint32_t taskId, std::size_t first, std::size_t count)> onStart;
    std::function<void(const GroupRecord&)> onRecord;
    std::function<void()> onRefused;
};

// Runs any number of items, as successive groups of at most 32, and returns when the server is rid of the last one.
// Nothing on success. When it fails while a group runs, at the time limit for instance or when cancelled, the group is
// stopped in the server and given a few seconds: what its items have come to by then still arrives as a record, and the
// error says whether the server is rid of it. Errors beside Session::StartGroup's and GroupRun::Await's: none. All
// requests are checked before the first group starts.
std::optional<Error> RunGroup(Session& session, std::span<const Request> requests, const GroupOptions& options,
                              const Limit& limit);

}  // namespace ominspect::client
