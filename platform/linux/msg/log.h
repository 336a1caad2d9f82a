// The log lines of the message layer itself.
#pragma once

#include <cstdint>

namespace kivo::msg {

inline constexpr uint32_t kLogError = 1;
inline constexpr uint32_t kLogWarning = 2;
inline constexpr uint32_t kLogInfo = 3;

// Writes one line to where OsMsgRegLogFunc says, unless OsMsgSetLogLevel leaves its level out.
void Log(uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace kivo::msg
