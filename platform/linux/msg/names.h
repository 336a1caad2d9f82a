// Process and task names, and how they stand on the bus.
#pragma once

#include <string>
#include <string_view>

#include "kivo/os_msg.h"

namespace kivo::msg {

inline constexpr const char* kInterface = "com.kivo.Msg";
inline constexpr const char* kProcPrefix = "com.kivo.proc.";
inline constexpr const char* kProcNamespace = "com.kivo.proc";
inline constexpr const char* kErrorQueueFull = "com.kivo.Msg.Error.QueueFull";
inline constexpr const char* kErrorTooLarge = "com.kivo.Msg.Error.TooLarge";

// A name out of a NUL-padded field of `size` bytes; empty when it breaks the rules: 1 to 15 bytes of UTF-8.
std::string ReadName(const char* field, size_t size);

bool IsValidName(std::string_view name);

// Copies a valid name, or the empty one, into a 16-byte field and fills the rest with NULs.
void WriteName(char (&field)[OS_MSG_NAME_SIZE], std::string_view name);

// "ominspect" -> "com.kivo.proc.ominspect"; other characters than letters and digits are escaped as
// sd_bus_path_encode(3) does. Empty when there is no memory.
std::string BusNameOf(const std::string& procName);

// The reverse; empty when it is no such name.
std::string ProcNameOf(const char* busName);

// "iom_srv_task" -> "/com/kivo/task/iom_5fsrv_5ftask"
std::string PathOf(const std::string& taskName);

// The reverse; empty when it is no such path.
std::string TaskNameOf(const char* path);

}  // namespace kivo::msg
