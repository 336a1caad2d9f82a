// Logging: every line of the server goes through here into "inspect.log" of the operations-log client.
//
// A source file names its unit once,
//     constexpr LogUnit kLogUnit{"inspect_server", 18};
// and writes lines with INSPECT_ERROR, INSPECT_WARNING and INSPECT_INFO.
#pragma once

#include <cstdint>

#include "kivo/om_log_client.h"

/// A source unit as its log lines name it.
struct LogUnit {
    const char* name;
    uint32_t module;
};

/// One line of this source file's unit; formatted as by printf(3), cut after 399 characters.
#define INSPECT_ERROR(...) InspectModuleLog(KIVO_OM_LOG_ERROR, kLogUnit.name, kLogUnit.module, __LINE__, __VA_ARGS__)
#define INSPECT_WARNING(...) \
    InspectModuleLog(KIVO_OM_LOG_WARNING, kLogUnit.name, kLogUnit.module, __LINE__, __VA_ARGS__)
#define INSPECT_INFO(...) InspectModuleLog(KIVO_OM_LOG_INFO, kLogUnit.name, kLogUnit.module, __LINE__, __VA_ARGS__)

/// Starts logging under a client name and creates the log. 0, or 15 when the log client refuses either.
uint32_t InspectLogInit(const char* clientName);

/// Ends logging; the log client's own result.
uint32_t InspectLogUninit();

/// Writes one line. `level` is 1 (error), 2 (warning) or 3 (information); level and module are passed on as 8 bits.
/// Never fails towards its caller: a text that cannot be formatted is written as "vsnprintf_s failed". Any thread;
/// before InspectLogInit the log client gets the handle 0.
void InspectModuleLog(uint32_t level, const char* unit, uint32_t module, uint32_t line, const char* format,
                      ...) noexcept __attribute__((format(printf, 5, 6)));

/// The same without a module number.
void InspectLog(uint32_t level, const char* unit, uint32_t line, const char* format, ...) noexcept
    __attribute__((format(printf, 4, 5)));
