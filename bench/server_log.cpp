// The log client is loaded at run time: its functions have the names of the fake platform's, which are linked.
#include "server_log.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "bench.h"
#include "kivo/om_log_client.h"

namespace {

using bench::Check;

decltype(&KivoOmLogModuleLogRecord) g_record = nullptr;
KivoOmLogHandle g_handle = 0;
bool g_write = false;
std::atomic<std::size_t> g_lines{0};  // background jobs log, too

template <typename Function>
Function* Find(void* library, const char* name, Function* /*like*/) {
    auto* const function = reinterpret_cast<Function*>(dlsym(library, name));
    Check(function != nullptr, name);
    return function;
}

}  // namespace

void bench::OpenServerLog(const std::string& folder) {
    Check(setenv("KIVO_LOG_DIR", folder.c_str(), 1) == 0, "naming the log's folder");
    void* const library = dlopen(LOG_CLIENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    Check(library != nullptr, "loading " LOG_CLIENT_LIBRARY);
    const KivoOmLogCreation creation{512, 2, 2097152, "inspect.log"};  // as the server creates it
    Check(Find(library, "KivoOmLogClientInit", &KivoOmLogClientInit)("om_inspect", 10) == 0 &&
              Find(library, "KivoOmLogCreateLog", &KivoOmLogCreateLog)(&creation, &g_handle) == 0,
          "opening the log");
    g_record = Find(library, "KivoOmLogModuleLogRecord", &KivoOmLogModuleLogRecord);
    g_write = true;
}

void bench::WriteServerLog(bool write) {
    g_write = write && g_record != nullptr;
}

std::size_t bench::ServerLogLines() {
    return g_lines;
}

// What the server calls instead of the fake's. It has formatted the line already. The linker asks for the name.
// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
extern "C" void __wrap_KivoOmLogModuleLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint8_t module,
                                                uint32_t line, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

void __wrap_KivoOmLogModuleLogRecord(uint8_t level, KivoOmLogHandle /*handle*/, const char* unit, uint8_t module,
                                     uint32_t line, const char* format, ...) {
    ++g_lines;
    if (!g_write) {
        return;
    }
    va_list args;
    va_start(args, format);
    g_record(level, g_handle, unit, module, line, "%s",
             std::strcmp(format, "%s") == 0 ? va_arg(args, const char*) : format);
    va_end(args);
}
// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
