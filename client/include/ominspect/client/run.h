// The whole life of one item's run, which holds up nobody else.
#pragma once

#include <functional>

#include "ominspect/client/session.h"

namespace ominspect::client {

struct RunOptions {
    // What to do when the server has a run of the item already, which somebody else asked for or which was left
    // running: false waits for its end and then runs the item, true takes its result.
    bool join = false;

    // What to do when the limit ends before the run: false stops the item, true lets it run on.
    bool leaveRunning = false;

    // Called on the calling thread, each may be empty: another run is waited for or joined (at most once); the run goes
    // on.
    std::function<void()> onOther;
    std::function<void(const ItemResult&)> onRunning;
};

struct RunOutcome {
    ItemResult result;
    bool isOther;  // the result of another run: a joined one, or one that ended and that the server does not let go
};

// Starts an item in the background and waits for its last result; for "stop" and "done" for the one that there is. When
// the limit ends before, the item is stopped, which may take some seconds, and the error's text says what came of it:
// whether the item was stopped, goes on, or has not begun. A joined run is left alone, as it is somebody else's. Errors
// beside Session::Start's and BackgroundRun::Await's: none.
Result<RunOutcome> RunItem(Session& session, const Request& request, const RunOptions& options, const Limit& limit);

}  // namespace ominspect::client
