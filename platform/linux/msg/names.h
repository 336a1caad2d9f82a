// Process and task names as names and paths of D-Bus.
#pragma once

#include <string>

namespace kivo::msg {

inline constexpr const char* kInterface = "com.kivo.Msg";
inline constexpr const char* kProcessPath = "/com/kivo/process";
inline constexpr const char* kPublisherInterface = "com.kivo.Msg.Publisher";
inline constexpr const char* kVersionInterface = "com.kivo.Msg.Process";
inline constexpr const char* kProcPrefix = "com.kivo.proc.";
inline constexpr const char* kProcNamespace = "com.kivo.proc";
inline constexpr const char* kErrorQueueFull = "com.kivo.Msg.Error.QueueFull";
inline constexpr const char* kErrorTooLarge = "com.kivo.Msg.Error.TooLarge";

// "ominspect" -> "com.kivo.proc.ominspect", "ic-7a" -> "com.kivo.proc.ic._37a" (a requester's); other characters than
// letters and digits are escaped as sd_bus_path_encode(3) does. Empty when there is no memory.
std::string BusNameOf(const std::string& procName);

// The process name of a bus name; empty for any other name.
std::string ProcNameOf(const char* busName);

// "iom_srv_task" -> "/com/kivo/task/iom_5fsrv_5ftask"
std::string PathOf(const std::string& taskName);

// The task name of an object path; empty for any other path.
std::string TaskNameOf(const char* path);

}  // namespace kivo::msg
