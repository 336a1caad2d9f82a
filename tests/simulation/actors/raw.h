// Messages as an actor without a library sends them.
#pragma once

#include <cstdint>
#include <string>

#include "kivo/os_msg.h"
#include "world/process.h"

namespace sim {

constexpr const char* kRawTask = "raw";

/// A message to the server's task; the payload must outlive it.
TagMsgBlock ToServer(uint32_t id, const std::string& payload, uint32_t param = 0);

/// Joins the bus with one task; false when that is not possible.
bool JoinRaw(const std::string& name, OsTaskHandler handler);

}  // namespace sim
