// What the bus's result codes mean to a requester: errors that name the address and the reason.
#pragma once

#include <cstdint>
#include <string_view>

#include "ominspect/client/error.h"

namespace ominspect::client {

// Of a message to the server that failed with this code, which is not OS_MSG_OK.
Error SendError(std::uint32_t code);

// Of this process's attempt to join the bus under a name; to be called on the thread that tried.
Error JoinError(std::uint32_t code, std::string_view processName);

// The connection to the bus is gone.
Error BusLostError();

// The server has come back and knows nothing of what it was asked before.
Error RestartError();

}  // namespace ominspect::client
