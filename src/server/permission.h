// Who may send messages to the server.
#pragma once

#include <cstdint>

/// Whether processes of this user may use the server. Here everybody may: on the device the bus's policy decides
/// who reaches the server at all. A stricter test goes into permission.cpp.
bool InspectCheckPackagesValidByUid(uint32_t uid) noexcept;
