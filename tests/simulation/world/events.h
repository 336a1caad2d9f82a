// The server's events, from the broadcast to the event functions of the client library's sessions: each must be told of
// all that was broadcast since it subscribed, in order and once, but for what the bus has lost.
#pragma once

#include <cstdint>
#include <string>

#include "world/process.h"

namespace sim {

/// The task of a session that gets its events.
bool GetsEvents(const std::string& process, const std::string& task);

/// The server broadcasts: a number for the event.
uint64_t NoteEvent(const std::string& from, const std::string& task, uint32_t id, const Bytes& data);

/// A full queue refuses it, or it is lost on its way.
void LoseEvent(Process& subscriber, uint64_t number);

/// The session's task has handled it.
void CheckTold(Process& subscriber, uint64_t number);

/// The calling process's event function is called: with the texts of a run's event, or with the state as a text.
void TellEvent(uint32_t id, const std::string& told);

}  // namespace sim
