// The heartbeat task: keeps the process known to the process monitor and reopens the log when the operations-log
// process restarts.
#pragma once

#include <cstdint>

#include "kivo/os_msg.h"

/// Entry of task "heartbeat": registers the process, starts the activation timer, subscribes to the restart
/// event and serves messages. No failure stops the task. Returns 0.
uint32_t InspectHeartBeatThread() noexcept;

/// Message handler of task "heartbeat": 0 for a restart event, 1 for anything else.
uint32_t InspectHeartBeatMsgProcess(TagMsgBlock* msg) noexcept;
