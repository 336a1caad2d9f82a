// The one error type of the programs: that of the client library. A function with a value returns Result<T>, one
// without returns std::optional<Error>, where nothing means success.
#pragma once

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "ominspect/client/error.h"

namespace ominspect {

using client::Error;
using client::ErrorCode;
using client::Result;

// The user's mistake; nothing was done.
inline Error WrongUse(std::string text) {
    return {ErrorCode::kInvalidArgument, std::move(text)};
}

// Any other failure of the program itself.
inline Error OtherError(std::string text) {
    return {ErrorCode::kInternal, std::move(text)};
}

// What the system says of an errno(3) number.
inline std::string SystemText(int number) {
    const char* text = strerrordesc_np(number);
    return text == nullptr ? "Unknown error " + std::to_string(number) : text;
}

// A system call that failed, in the words of the system.
inline Error SystemError(int number = errno) {
    return {ErrorCode::kInternal, SystemText(number), number};
}

}  // namespace ominspect
