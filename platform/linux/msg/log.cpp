// The level and the function that receives the lines can be changed at any time.
#include "msg/log.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "common/standard_error.h"
#include "kivo/os_msg.h"
#include "ominspect/journal.h"

namespace kivo::msg {

namespace {

using LogFunc = void (*)(const char*);

constexpr size_t kLineSize = 512;

void ToStandardError(uint32_t level, const char* text) {
    std::array<char, kLineSize + 32> line{};
    const char* prefix = OmJournalPrefix(level == kLogError     ? OM_JOURNAL_ERROR
                                         : level == kLogWarning ? OM_JOURNAL_WARNING
                                                                : OM_JOURNAL_INFO);
    (void)std::snprintf(line.data(), line.size(), "%skivo_os_msg: %s", prefix, text);
    WriteToStandardError(line.data());
}

std::atomic<uint32_t> g_level{kLogWarning};
std::atomic<LogFunc> g_log{nullptr};  // null: standard error

}  // namespace

void Log(uint32_t level, const char* format, ...) {
    if (level > g_level.load(std::memory_order_relaxed)) {
        return;
    }
    std::array<char, kLineSize> line{};
    va_list args;
    va_start(args, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the checker misses va_start after an early return
    (void)std::vsnprintf(line.data(), line.size(), format, args);
    va_end(args);
    // A text that came from a peer must not break the line.
    for (char& byte : line) {
        if (byte != '\0' && (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f)) {
            byte = '?';
        }
    }
    if (const LogFunc log = g_log.load()) {
        log(line.data());
    } else {
        ToStandardError(level, line.data());
    }
}

}  // namespace kivo::msg

void OsMsgSetLogLevel(uint32_t level) {
    kivo::msg::g_level.store(level);
}

void OsMsgRegLogFunc(void (*log)(const char* text)) {
    kivo::msg::g_log.store(log);
}
