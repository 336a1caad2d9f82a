// The exit code that a status or an error gives.
#pragma once

#include <string_view>

#include "common/command_line.h"
#include "ominspect/client/error.h"

namespace ominspect::ctl {

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
