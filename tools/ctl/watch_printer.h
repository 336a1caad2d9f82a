// What the command watch prints.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "commands.h"
#include "common/fd.h"
#include "exit_code.h"
#include "history.h"
#include "ominspect/client/session.h"

namespace ominspect::ctl {

// Prints the events of the session's thread, and what another one sees of the server; tells the waiting thread when it
// is over.
class WatchPrinter {
public:
    explicit WatchPrinter(const WatchOptions& options);

    // For the session. They call the printer.
    client::Events Events();

    // Whether the server has come or gone. From any thread.
    void Server(bool present);

    // Readable once an exit code is there.
    int Fd() const { return over_.Get(); }
    ExitCode Code() const { return code_; }

    // The results that were seen. Only to be called when the session is over.
    History& Seen() { return history_; }

private:
    void Print(const std::string& line);
    void Finish(ExitCode code);
    void End(ExitCode code);

    const WatchOptions& options_;
    const UniqueFd over_;
    std::mutex mutex_;  // guards `finished_` and `printed_`
    bool finished_ = false;
    std::uint64_t printed_ = 0;
    History history_;  // used by the session's thread only

    std::atomic<ExitCode> code_{kPassed};
};

}  // namespace ominspect::ctl
