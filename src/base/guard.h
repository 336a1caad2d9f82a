// The error policy, and the guard that enforces it where the platform calls the server.
//
// Functions answer with result codes. What the standard library throws (mostly because memory ran out) is caught at
// the functions that the platform calls, so that nothing is thrown across the module's boundary. There it is logged
// at level 1, what was being done is given up, and the server goes on:
//   - a message handler: the reply is empty, whatever the handler had put into it (InspectMsgProcess);
//   - a background job: the job ends, and is removed as after its normal end (InspacetTask::ThreadFunc);
//   - the start of the task: the remaining steps of the start are left out, then messages are served.
// Inside a job it is also caught around single steps after which an item must still be waited for or let go of (the
// start, the stop and the reset of each item of a group, the adding of a requester), and around each part of a copy.
// Locks and buffers are released on the way (RAII); what was changed before stays changed. Where an operation
// has a code of its own for "no buffer" or "no worker", it answers with that code instead.
#pragma once

#include <exception>

#include "base/log.h"

/// Runs `body`. False, with a line in the log, when it threw; `what` names it in that line.
template <typename Body>
bool RunGuarded(const LogUnit& unit, const char* what, const Body& body) noexcept {
    try {
        body();
        return true;
    } catch (const std::exception& error) {
        InspectModuleLog(KIVO_OM_LOG_ERROR, unit.name, unit.module, __LINE__, "%s given up: %s", what, error.what());
        return false;
    }
}
