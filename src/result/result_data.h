// One entry of the result table.
#pragma once

#include <cstdint>
#include <vector>

#include "base/records.h"

/// State, result and requesters of an item or a group. Guarded by the table lock of ResultMgr.
struct ResultData {
    uint8_t startCount = 0;  // runs in progress; wraps modulo 256
    uint32_t taskId = 0;     // job of the wait timer; 0: none
    uint32_t timeout = 0;    // of one run, in ms; 0: no limit
    tagKivoOmInspectionResult result{};
    uint64_t startTime = 0;  // system time in ms when the first of the runs began; 0 before
    uint64_t endTime = 0;    // system time in ms when the run finished, was stopped or timed out; 0 before
    std::vector<InspectClientMsg> requesters;  // to be told of the result, in order of arrival, duplicates kept
};

/// A result record. A text that does not fit its field leaves the field empty.
tagKivoOmInspectionResult MakeResult(const char* name, const char* status, const char* text);

/// What clients see of an entry.
tagKivoOmInspectionDataItem MakeDataItem(const ResultData& data);
