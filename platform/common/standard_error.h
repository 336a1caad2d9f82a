// Lines of the platform itself on standard error.
#pragma once

#include <string_view>

namespace kivo {

/// Writes a line and its line end, with one system call as long as the system takes everything at once. A reader that
/// has gone away is no reason for SIGPIPE to end the process, nor is any other failure reported: there is no other
/// place left. Any thread; needs no memory.
void WriteToStandardError(std::string_view line);

}  // namespace kivo
