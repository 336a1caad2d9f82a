// What the simulator reads of a server that runs: its tables, past all locks. Each copy of the server's image has these
// functions, under these names.
#pragma once

#include <cstdint>

#include "ominspect/records.h"

#pragma GCC visibility push(default)

extern "C" {

struct SimRequester {
    const char* proc;
    const char* task;
};

struct SimEntry {
    const char* name;
    uint8_t startCount;
    uint32_t taskId;
    uint32_t timeout;
    const tagKivoOmInspectionResult* result;
    uint64_t startTime;
    uint64_t endTime;
    uint32_t requesters;
};

struct SimJob {
    uint32_t taskId;
    bool stopFlag;
    bool forceOnly;
};

/// Calls `visit` for each entry of the result table, in the order of the names; gives the running count.
uint32_t SimVisitTable(void (*visit)(void* context, const SimEntry& entry, const SimRequester* requesters),
                       void* context);

/// Calls `visit` for each entry of the job table, in the order of the identifiers.
void SimVisitJobs(void (*visit)(void* context, const SimJob& job), void* context);

const void* SimTableLock();
const void* SimJobsLock();

/// Destroys the image's static objects, as the end of its process does.
void SimEnd();
}

#pragma GCC visibility pop
