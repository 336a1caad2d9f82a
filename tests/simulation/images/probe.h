// What the simulator reads of a server that runs: its tables, past all locks. Each copy of the server's image has these
// functions, under these names.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ominspect/records.h"

#pragma GCC visibility push(default)

extern "C" {

struct SimRequester {
    const char* proc;
    const char* task;
    bool isWithin;  // its texts lie within its own bytes
};

/// A list of requesters as the server has it.
struct SimRequesters {
    const void* first;
    size_t bytes;
    uint32_t count;
    SimRequester (*get)(const void* first, uint32_t number);
};

struct SimEntry {
    const char* name;
    uint8_t startCount;
    uint32_t taskId;
    uint32_t timeout;
    const tagKivoOmInspectionResult* result;
    uint64_t startTime;
    uint64_t endTime;
    SimRequesters requesters;
};

struct SimJob {
    uint32_t taskId;
    bool stopFlag;
    bool forceOnly;
};

/// Calls `visit` for each entry of the result table, in the order of the names; gives the running count.
uint32_t SimVisitTable(void (*visit)(void* context, const SimEntry& entry), void* context);

/// Calls `visit` for each entry of the job table, in the order of the identifiers.
void SimVisitJobs(void (*visit)(void* context, const SimJob& job), void* context);

const void* SimTableLock();
const void* SimJobsLock();

/// Destroys the image's static objects, as the end of its process does.
void SimEnd();
}

#pragma GCC visibility pop
