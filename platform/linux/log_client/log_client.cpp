// One client per process. Lines that no log takes go to standard error, and so do the errors of the units that
// KIVO_LOG_MANAGER_UNITS names, whose user looks there first.
#include "kivo/om_log_client.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "common/records.h"
#include "common/standard_error.h"
#include "log_client/line.h"
#include "log_client/log_file.h"
#include "log_client/thread_id.h"
#include "ominspect/journal.h"

namespace {

using kivo::WriteToStandardError;
using kivo::log::LogFile;
using kivo::log::Record;
using kivo::log::ThreadId;
using kivo::log::TimeText;

// Whether the service manager is to know of a unit's errors: the environment names such units, with commas between
// them.
bool IsForManager(const char* unit) {
    const char* units = std::getenv("KIVO_LOG_MANAGER_UNITS");
    if (units == nullptr || unit == nullptr) {
        return false;
    }
    return (std::string(1, ',') + units + ',').find(std::string(1, ',') + unit + ',') != std::string::npos;
}

constexpr size_t kMaxClientName = 31;
constexpr size_t kNoLimit = std::numeric_limits<size_t>::max();

std::string PathOf(const char* fileName) {
    const char* directory = std::getenv("KIVO_LOG_DIR");
    return std::string(directory == nullptr || *directory == '\0' ? "/var/log/kivo" : directory) + '/' + fileName;
}

class LogClient {
public:
    // Never destroyed: threads may log until the process has ended. Every line is flushed when it is written.
    static LogClient& Instance() {
        static auto* client = new LogClient;
        return *client;
    }

    void Init(std::string name) {
        const std::lock_guard lock(mutex_);
        if (name_.empty()) {
            name_ = std::move(name);
        }
    }

    uint32_t UnInit() {
        const std::lock_guard lock(mutex_);
        if (name_.empty()) {
            return EPERM;
        }
        logs_.clear();
        name_.clear();
        return 0;
    }

    uint32_t Create(const KivoOmLogCreation& creation, KivoOmLogHandle& handle) {
        const std::lock_guard lock(mutex_);
        if (name_.empty()) {
            return EPERM;
        }
        const auto same = std::find_if(logs_.begin(), logs_.end(),
                                       [&](const auto& log) { return log.second.fileName == creation.fileName; });
        if (same != logs_.end()) {
            handle = same->first;
            return 0;
        }
        if (logs_.size() == std::numeric_limits<KivoOmLogHandle>::max()) {
            return EMFILE;
        }
        LogFile file(PathOf(creation.fileName), creation.fileCount, creation.fileSize);
        if (const uint32_t error = file.Open(); error != 0) {
            return error;
        }
        // The line end counts, and no line is larger than a file.
        const size_t limit = std::min(creation.lineSize, creation.fileSize) - 1;
        const KivoOmLogHandle fresh = FreshHandle();
        logs_.emplace(fresh, Log{creation.fileName, limit, std::move(file)});
        handle = fresh;
        return 0;
    }

    void Write(KivoOmLogHandle handle, const Record& record) {
        const std::lock_guard lock(mutex_);
        const auto found = logs_.find(handle);
        if (found == logs_.end()) {
            WriteToStandardError(Format(record, kNoLimit));
            return;
        }
        Log& log = found->second;
        if (record.level == KIVO_OM_LOG_ERROR && IsForManager(record.unit)) {
            WriteToStandardError(OmJournalPrefix(OM_JOURNAL_ERROR) + Format(record, log.lineLimit));
        }
        const std::optional<std::string> failure = log.file.Write(Format(record, log.lineLimit));
        if (failure) {
            if (!log.failed) {
                const std::string notice = "cannot write " + log.file.Path() + ": " + *failure;
                WriteToStandardError(Format({KIVO_OM_LOG_ERROR, "om_log_client", {}, __LINE__, notice}, kNoLimit));
            }
            WriteToStandardError(Format(record, kNoLimit));
        }
        log.failed = failure.has_value();
    }

private:
    struct Log {
        std::string fileName;
        size_t lineLimit;  // without the line end
        LogFile file;
        bool failed = false;
    };

    // Valid until the next call.
    const std::string& Format(const Record& record, size_t limit) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        const ThreadId& here = ThreadId::OfThisThread();
        FormatLine(line_, record, {time_.Of(now), name_, here.process, here.thread}, limit);
        return line_;
    }

    // Numbers of closed logs are not used again before all others were: somebody may still log under them.
    KivoOmLogHandle FreshHandle() {
        do {
            ++lastHandle_;
        } while (lastHandle_ == 0 || logs_.contains(lastHandle_));
        return lastHandle_;
    }

    std::mutex mutex_;  // guards everything below
    TimeText time_;
    std::string line_;  // the last one, kept for its memory
    std::string name_;  // empty: not initialised
    std::map<KivoOmLogHandle, Log> logs_;
    KivoOmLogHandle lastHandle_ = 0;
};

std::string FormatText(const char* format, va_list args) {
    if (format == nullptr) {
        return "(no format)";
    }
    std::array<char, 512> buffer{};
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(buffer.data(), buffer.size(), format, args);
    std::string text;
    if (length < 0) {
        text = format;  // better than nothing
    } else if (static_cast<size_t>(length) < buffer.size()) {
        text.assign(buffer.data(), static_cast<size_t>(length));
    } else {
        text.resize(static_cast<size_t>(length));
        (void)std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

// What is said of a lost line needs no memory: mostly that is what was missing.
void LogText(KivoOmLogHandle handle, Record record, const char* format, va_list args) noexcept try {
    const std::string text = FormatText(format, args);
    record.text = text;
    LogClient::Instance().Write(handle, record);
} catch (const std::bad_alloc&) {
    WriteToStandardError("om_log_client: no memory, a line is lost");
} catch (...) {
    WriteToStandardError("om_log_client: a line is lost");
}

// What a function that answers with a number does; nothing is thrown out of it.
template <typename Function>
uint32_t Guarded(Function&& function) noexcept {
    try {
        return function();
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (...) {
        return EIO;
    }
}

}  // namespace

uint32_t KivoOmLogClientInit(const char* clientName, size_t length) {
    if (clientName == nullptr || length == 0 || length > kMaxClientName) {
        return EINVAL;
    }
    return Guarded([&] {
        LogClient::Instance().Init(std::string(clientName, length));
        return 0U;
    });
}

uint32_t KivoOmLogCreateLog(const struct KivoOmLogCreation* creation, KivoOmLogHandle* handle) {
    if (creation == nullptr || handle == nullptr || !kivo::IsValid(*creation)) {
        return EINVAL;
    }
    return Guarded([&] { return LogClient::Instance().Create(*creation, *handle); });
}

void KivoOmLogModuleLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint8_t module, uint32_t line,
                              const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogText(handle, {level, unit, module, line, {}}, format, args);
    va_end(args);
}

void KivoOmLogGeneralLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint32_t line,
                               const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogText(handle, {level, unit, {}, line, {}}, format, args);
    va_end(args);
}

uint32_t KivoOmLogClientUnInit(void) {
    return Guarded([] { return LogClient::Instance().UnInit(); });
}
