// The operations log (om_log_client.h): every line goes to the journal. A slow disk holds up whoever logs.
#include "kivo/om_log_client.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "common/records.h"
#include "world/choices.h"
#include "world/faults.h"
#include "world/journal.h"
#include "world/observer.h"
#include "world/outcome.h"

using namespace sim;

namespace {

constexpr uint32_t kNoModule = 256;

std::string Format(const char* format, va_list args) {
    char* text = nullptr;
    const int length = vasprintf(&text, format, args);
    const std::unique_ptr<char, decltype(&std::free)> owner(length < 0 ? nullptr : text, &std::free);
    return length < 0 ? std::string() : std::string(text, static_cast<size_t>(length));
}

void RecordLine(uint32_t level, KivoOmLogHandle handle, const char* unit, uint32_t module, const std::string& text) {
    Point();
    if (IsDue(Fault::kSlowDisk)) {
        (void)Wait("the disk", nullptr, Now() + (1 + Pick(20)) * (100 * kMilli));
    }
    Process& process = CurrentProcess();
    const bool levelIsKnown = level == KIVO_OM_LOG_ERROR || level == KIVO_OM_LOG_WARNING || level == KIVO_OM_LOG_INFO;
    if (unit == nullptr || *unit == '\0' || !levelIsKnown || text.size() > 399) {
        Violation("a log line that is not well formed: " + text);
    }
    if (handle > process.lastLog) {
        Violation("a log line with a handle that was never given: " + text);
    }
    Note({"log ", level, " ", unit}, text);
    if (Observer* const observer = TheObserver()) {
        observer->OnLog(*Self(), level, unit, module, text);
    }
}

}  // namespace

uint32_t KivoOmLogClientInit(const char* clientName, size_t length) {
    const InPlatform platform;
    Point();
    if (clientName == nullptr || length == 0 || length > 31) {
        return EINVAL;
    }
    CurrentProcess().logging = true;
    return 0;
}

uint32_t KivoOmLogCreateLog(const KivoOmLogCreation* creation, KivoOmLogHandle* handle) {
    const InPlatform platform;
    Point();
    if (creation == nullptr || handle == nullptr || !kivo::IsValid(*creation)) {
        return EINVAL;
    }
    Process& process = CurrentProcess();
    if (!process.logging) {
        return EPERM;
    }
    const auto [log, created] = process.logs.try_emplace(creation->fileName);
    if (created) {
        log->second = ++process.lastLog;
    }
    *handle = log->second;
    return 0;
}

void KivoOmLogModuleLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint8_t module,
                              uint32_t /*line*/, const char* format, ...) {
    const InPlatform platform;
    va_list args;
    va_start(args, format);
    const std::string text = Format(format, args);
    va_end(args);
    RecordLine(level, handle, unit, module, text);
}

void KivoOmLogGeneralLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint32_t /*line*/,
                               const char* format, ...) {
    const InPlatform platform;
    va_list args;
    va_start(args, format);
    const std::string text = Format(format, args);
    va_end(args);
    RecordLine(level, handle, unit, kNoModule, text);
}

uint32_t KivoOmLogClientUnInit(void) {
    const InPlatform platform;
    Point();
    Process& process = CurrentProcess();
    if (!process.logging) {
        return EPERM;
    }
    process.logging = false;
    process.logs.clear();
    return 0;
}
