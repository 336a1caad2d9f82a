// The exit codes of ominspectctl: stable, for scripts.
#pragma once

#include <string_view>

#include "ominspect/client/error.h"

namespace ominspect::ctl {

enum ExitCode : int {
    kPassed = 0,
    kFailed = 1,        // a check failed: a status other than "success"; or the output cannot be written
    kWrongUse = 2,      // wrong arguments; nothing was sent
    kUnreachable = 3,   // no usable answer: the server or the bus is not there, or refuses
    kTimeLimit = 4,     // no final result within the time limit
    kInterrupted = 130  // cancelled by Ctrl-C (128 + SIGINT), as the shells have it
};

inline ExitCode CodeOfStatus(std::string_view status) {
    return status == "success" ? kPassed : kFailed;
}

inline ExitCode ExitCodeOf(const client::Error& error) {
    switch (error.code) {
        case client::ErrorCode::kInvalidArgument:
            return kWrongUse;
        case client::ErrorCode::kTimeLimit:
            return kTimeLimit;
        case client::ErrorCode::kCancelled:
            return kInterrupted;
        default:
            return kUnreachable;
    }
}

}  // namespace ominspect::ctl
