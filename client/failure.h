// Makes errors that name address and reason from the result codes of the bus.
#pragma once

#include <cstdint>
#include <string_view>

#include "ominspect/client/error.h"

namespace ominspect::client {

// A message to the server failed with this code, which is not OS_MSG_OK.
Error SendError(std::uint32_t code);

// This process could not join the bus under this name. To be called on the thread that tried.
Error JoinError(std::uint32_t code, std::string_view processName);

// The server has restarted and forgotten what it was asked before.
Error RestartError();

}  // namespace ominspect::client
