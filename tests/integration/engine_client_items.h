// Items of the tests of the engine client library.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include "kivo/om_inspect_engine_client.h"

namespace support {

/// A handler that succeeds at once.
inline uint32_t Succeed(const char* itemName, const char* request, tagKivoOmInspectionResult* result) {
    std::snprintf(result->status, sizeof result->status, "success");
    std::snprintf(result->text, sizeof result->text, "%s got %s", itemName, request);
    return 0;
}

inline InspectHandlerRecord Record(const std::string& name, InspectItemHandler handler, uint32_t timeout = 0) {
    InspectHandlerRecord record{};
    std::copy(name.begin(), name.end(), record.name);
    record.handler = handler;
    record.timeout = timeout;
    return record;
}

}  // namespace support
