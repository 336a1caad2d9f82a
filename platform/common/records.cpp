// Pointers inside the records are only checked for null.
#include "common/records.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

namespace kivo {

namespace {

template <size_t size>
bool IsTerminated(const char (&field)[size]) {
    return std::memchr(field, '\0', size) != nullptr;
}

}  // namespace

bool IsValid(const OsTimerParam& timer) {
    const bool reservedIsZero =
        std::all_of(std::begin(timer.reserved), std::end(timer.reserved), [](char byte) { return byte == '\0'; });
    return timer.mode == 1 && reservedIsZero && timer.period >= 1 && timer.repeat <= 1 && timer.callback != nullptr;
}

bool IsValid(const KivoOmLogCreation& log) {
    constexpr uint32_t kMaxFileCount = 1000;
    const std::string_view name(log.fileName, strnlen(log.fileName, sizeof log.fileName));
    const bool isName = !name.empty() && name.size() < sizeof log.fileName &&
                        name.find('/') == std::string_view::npos && name != "." && name != "..";
    return isName && log.lineSize > 0 && log.fileSize > 0 && log.fileCount > 0 && log.fileCount <= kMaxFileCount;
}

bool IsValid(const InspectHandlerRecord& item) {
    return item.name[0] != '\0' && IsTerminated(item.name) && item.handler != nullptr;
}

bool IsValid(const tagKivoOmInspectionResult& result) {
    return IsTerminated(result.name) && IsTerminated(result.status) && IsTerminated(result.text);
}

}  // namespace kivo
