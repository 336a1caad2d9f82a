// The start of the server: what precedes the tasks, and what the thread of task "iom_srv_task" does before it serves.
#pragma once

#include <cstdint>

/// Blocks SIGCHLD and SIGUSR1 in the calling thread, and so in all threads it creates later, and starts the platform's
/// timer manager. 0, or the first failing platform code.
uint32_t InitTimer();

/// Starts logging under "om_inspect" and the system-log backup. Failures are ignored: the server serves all the same.
void InitInspectServer();

namespace Inspect {

/// Prepares the result table and puts the group catalogue into it; reads the configuration. Call once, before messages
/// are served.
void Init();

}  // namespace Inspect

/// Entry of task "iom_srv_task" in a process of its own: starts everything and serves messages. Returns 0.
uint32_t InspectTaskEntry() noexcept;

/// The same inside a host process, without the system-log backup, which is the host's business.
uint32_t InspectThreadEntry() noexcept;
