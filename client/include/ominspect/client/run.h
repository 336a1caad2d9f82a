// Runs one item from its start to its result, without holding up other clients.
#pragma once

#include <functional>

#include "ominspect/client/session.h"

#pragma GCC visibility push(default)

namespace ominspect::client {

struct RunOptions {
    // The server may have a run of the item already, which another client started or which was left running. False:
    // waits for its end and then runs the item. True: takes its result.
    bool join = false;

    // The limit may end before the run. False: the item is stopped. True: it goes on.
    bool leaveRunning = false;

    // Called on the calling thread; each may be empty. onOther: another run is waited for or joined (called once at
    // most). onRunning: a result with the status "running" came.
    std::function<void()> onOther;
    std::function<void(const ItemResult&)> onRunning;
};

struct RunOutcome {
    ItemResult result;
    bool isOther;  // the result is that of another run: one that was joined, or one that the server never releases
};

// Starts an item in the background and waits for its last result. "stop" and "done" have one result only. If the limit
// ends first, the item is stopped, which may take some seconds; the error's text says whether it was stopped, goes on,
// or has not begun. A joined run is not stopped, as it is another client's. The errors are those of Session::Start and
// BackgroundRun::Await.
Result<RunOutcome> RunItem(Session& session, const Request& request, const RunOptions& options, const Limit& limit);

}  // namespace ominspect::client

#pragma GCC visibility pop
