// The exit codes of ominspectctl: stable, for scripts.
#pragma once

#include "ominspect/client/error.h"

namespace ominspect::ctl {

enum ExitCode {
    kPassed = 0,
    kFailed = 1,       // the check failed: a status other than "success"; or the output cannot be written
    kWrongUse = 2,     // wrong arguments; nothing was sent
    kUnreachable = 3,  // no usable answer: the server or the bus is not there, or refuses this process
    kTimeLimit = 4     // no final result within the time limit
};

inline ExitCode ExitCodeOf(const client::Error& error) {
    switch (error.code) {
        case client::ErrorCode::kInvalidArgument:
            return kWrongUse;
        case client::ErrorCode::kTimeLimit:
            return kTimeLimit;
        default:
            return kUnreachable;
    }
}

}  // namespace ominspect::ctl
