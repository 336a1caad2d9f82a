// Operations-log client (om_log_client.h): every line goes to the journal.
#include "kivo/om_log_client.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "common/records.h"
#include "fake/journal.h"
#include "fake/reset.h"
#include "fake/scheduler.h"

using namespace kivo::fake;

namespace {

constexpr uint32_t kNoModule = 256;

struct Client {
    bool initialised{};
    KivoOmLogHandle lastHandle{};
    std::map<std::string, KivoOmLogHandle> logs;  // by file name
};

Client& TheClient() {
    static Client& client = *new Client;
    return client;
}

std::string Format(const char* format, va_list args) {
    char* text = nullptr;
    if (vasprintf(&text, format, args) < 0) {
        return {};
    }
    const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
    return text;
}

void RecordLine(uint8_t level, KivoOmLogHandle handle, const char* unit, uint32_t module, uint32_t line,
                std::string text) {
    Entry entry;
    entry.kind = Kind::kLog;
    entry.level = level;
    entry.handle = handle;
    entry.unit = unit == nullptr ? "" : unit;
    entry.module = module;
    entry.line = line;
    entry.text = std::move(text);
    const Lock lock = Hold();
    Record(lock, std::move(entry));
}

}  // namespace

void kivo::fake::ResetLogClient() {
    TheClient() = {};
}

uint32_t KivoOmLogClientInit(const char* clientName, size_t length) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "KivoOmLogClientInit")) {
        return *code;
    }
    if (clientName == nullptr || length == 0 || length > 31) {
        return EINVAL;
    }
    RecordCall(lock, "KivoOmLogClientInit(" + std::string(clientName, length) + ")");
    TheClient().initialised = true;
    return 0;
}

uint32_t KivoOmLogCreateLog(const struct KivoOmLogCreation* creation, KivoOmLogHandle* handle) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "KivoOmLogCreateLog")) {
        return *code;
    }
    if (creation == nullptr || handle == nullptr) {
        return EINVAL;
    }
    const std::string fileName(creation->fileName, strnlen(creation->fileName, sizeof(creation->fileName)));
    RecordCall(lock, "KivoOmLogCreateLog(" + std::to_string(creation->lineSize) + ", " +
                         std::to_string(creation->fileCount) + ", " + std::to_string(creation->fileSize) + ", " +
                         fileName + ")");
    if (!kivo::IsValid(*creation)) {
        return EINVAL;
    }
    Client& client = TheClient();
    if (!client.initialised) {
        return EPERM;
    }
    const auto [log, created] = client.logs.try_emplace(fileName);
    if (created) {
        log->second = ++client.lastHandle;
    }
    *handle = log->second;
    return 0;
}

void KivoOmLogModuleLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint8_t module, uint32_t line,
                              const char* format, ...) {
    va_list args;
    va_start(args, format);
    RecordLine(level, handle, unit, module, line, Format(format, args));
    va_end(args);
}

void KivoOmLogGeneralLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint32_t line,
                               const char* format, ...) {
    va_list args;
    va_start(args, format);
    RecordLine(level, handle, unit, kNoModule, line, Format(format, args));
    va_end(args);
}

uint32_t KivoOmLogClientUnInit(void) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "KivoOmLogClientUnInit")) {
        return *code;
    }
    RecordCall(lock, "KivoOmLogClientUnInit");
    if (!TheClient().initialised) {
        return EPERM;
    }
    TheClient().initialised = false;
    TheClient().logs.clear();
    return 0;
}
