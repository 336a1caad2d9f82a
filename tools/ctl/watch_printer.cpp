// Each event is one line, which is written before the next one is taken.
#include "watch_printer.h"

#include <chrono>
#include <cstdio>

#include <sys/eventfd.h>

#include "output.h"

namespace ominspect::ctl {

WatchPrinter::WatchPrinter(const WatchOptions& options) : options_(options), over_(eventfd(0, EFD_CLOEXEC)) {}

client::Events WatchPrinter::Events() {
    return {[this](const client::ItemResult& result) {
                const auto now = std::chrono::system_clock::now();
                history_.Add(result, now);
                Print(options_.json ? RunEventJson(now, result) : RunEventLine(now, result));
            },
            [this](bool busy) {
                const auto now = std::chrono::system_clock::now();
                Print(options_.json ? BusyEventJson(now, busy) : BusyEventLine(now, busy));
            },
            [this] { Finish(kUnreachable); }};
}

void WatchPrinter::Server(bool present) {
    const auto now = std::chrono::system_clock::now();
    Print(options_.json ? ServerEventJson(now, present) : ServerEventLine(now, present));
}

void WatchPrinter::Print(const std::string& line) {
    const std::lock_guard lock(mutex_);
    if (finished_) {
        return;
    }
    const bool written = std::printf("%s\n", line.c_str()) >= 0 && std::fflush(stdout) == 0;
    ++printed_;
    if (!written) {
        End(kFailed);
    } else if (printed_ == options_.count) {
        End(kPassed);
    }
}

void WatchPrinter::Finish(ExitCode code) {
    const std::lock_guard lock(mutex_);
    End(code);
}

// With the lock.
void WatchPrinter::End(ExitCode code) {
    if (finished_) {
        return;
    }
    finished_ = true;
    code_ = code;
    (void)eventfd_write(over_.Get(), 1);
}

}  // namespace ominspect::ctl
