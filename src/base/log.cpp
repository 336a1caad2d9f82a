// Each line is formatted on the caller's stack, so that any number of threads can log at once.
#include "base/log.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstring>

#include "kivo/os_bounds.h"

namespace {

constexpr KivoOmLogCreation creationRecord{512, 2, 2097152, "inspect.log"};
constexpr uint32_t kInitFailed = 15;
constexpr const char* kFormatFailed = "vsnprintf_s failed";

// Written when the log is opened (again), read by whichever thread logs meanwhile.
std::atomic<KivoOmLogHandle> logHandle{0};

/// The formatted text of one line.
class LineText {
public:
    LineText(const char* format, va_list args) noexcept __attribute__((format(printf, 2, 0)))
    : m_valid(vsnprintf_s(m_text.data(), m_text.size(), m_text.size() - 1, format, args) >= 0) {}

    bool Valid() const noexcept { return m_valid; }
    const char* Text() const noexcept { return m_text.data(); }

private:
    std::array<char, 400> m_text{};
    bool m_valid;
};

}  // namespace

uint32_t InspectLogInit(const char* clientName) {
    if (KivoOmLogClientInit(clientName, std::strlen(clientName)) != 0) {
        return kInitFailed;
    }
    KivoOmLogHandle handle = 0;
    if (KivoOmLogCreateLog(&creationRecord, &handle) != 0) {
        return kInitFailed;
    }
    logHandle = handle;
    return 0;
}

uint32_t InspectLogUninit() {
    return KivoOmLogClientUnInit();
}

void InspectModuleLog(uint32_t level, const char* unit, uint32_t module, uint32_t line, const char* format,
                      ...) noexcept {
    va_list args;
    va_start(args, format);
    const LineText text(format, args);
    va_end(args);

    const auto level8 = static_cast<uint8_t>(level);
    const auto module8 = static_cast<uint8_t>(module);
    if (text.Valid()) {
        KivoOmLogModuleLogRecord(level8, logHandle, unit, module8, line, "%s", text.Text());
    } else {
        KivoOmLogModuleLogRecord(level8, logHandle, unit, module8, line, kFormatFailed);
    }
}

void InspectLog(uint32_t level, const char* unit, uint32_t line, const char* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    const LineText text(format, args);
    va_end(args);

    const auto level8 = static_cast<uint8_t>(level);
    if (text.Valid()) {
        KivoOmLogGeneralLogRecord(level8, logHandle, unit, line, "%s", text.Text());
    } else {
        KivoOmLogGeneralLogRecord(level8, logHandle, unit, line, kFormatFailed);
    }
}
