// One collection: its words and its limit.
#include "entry.h"

#include <algorithm>

namespace ominspect::collect {

const char* OutcomeWord(Outcome outcome) {
    switch (outcome) {
        case Outcome::kComplete:
            return "complete";
        case Outcome::kIncomplete:
            return "incomplete";
        case Outcome::kCutShort:
            return "cut short";
        case Outcome::kInterrupted:
            return "interrupted";
        case Outcome::kMissing:
            return "missing";
        case Outcome::kRefused:
            return "refused";
        case Outcome::kFailed:
            return "failed";
        case Outcome::kNotStarted:
            break;
    }
    return "not started";
}

bool MirrorsFolder(const Entry& entry) {
    return entry.copy == InspectCopyDirFile || (entry.copy == InspectCopyWylogsFile && !InspectIsNeedBackupWylog());
}

std::optional<std::chrono::seconds> LimitOf(const Entry& entry) {
    constexpr std::uint32_t kLongest = 60;
    if (!MirrorsFolder(entry)) {
        return std::nullopt;
    }
    return std::chrono::seconds(std::min(entry.limit, kLongest));
}

const char* KindWord(InspectCopyFunction copy) {
    if (copy == InspectCopyDirFile) {
        return "folder";
    }
    return copy == InspectCopyWylogsFile ? "system log" : "file";
}

}  // namespace ominspect::collect
