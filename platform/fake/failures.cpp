// Failures on demand: which calls of which platform function fail, and with what.
#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <string>

#include "fake/fake.h"
#include "fake/journal.h"
#include "fake/reset.h"
#include "fake/scheduler.h"

namespace kivo::fake {

namespace {

// Every platform function that can fail by its result or by null.
constexpr auto kFunctions = std::to_array<std::string_view>({
    "InspectClientInit",
    "InspectRegHandler",
    "InspectReportResult",
    "InspectUnRegHandler",
    "KivoOmLogClientInit",
    "KivoOmLogClientUnInit",
    "KivoOmLogCreateLog",
    "OsAccess",
    "OsCloseDir",
    "OsCopyFile",
    "OsGetStat",
    "OsMemMallocSetCharMon",
    "OsMkDir",
    "OsMonitorProActivate",
    "OsMonitorProReg",
    "OsMsgAsynSend",
    "OsMsgBroadcastEvent",
    "OsMsgSubscribeEvent",
    "OsMsgSynDeferResp",
    "OsMsgSynSend",
    "OsMsgSynSendResp",
    "OsMsgTaskRoutineByName",
    "OsOpenDir",
    "OsProcAttach",
    "OsPthreadCreate",
    "OsPthreadDetach",
    "OsPthreadSigmask",
    "OsReadDir",
    "OsRemove",
    "OsRmDir",
    "OsRwLockDestroy",
    "OsRwLockInit",
    "OsRwLockRdLock",
    "OsRwLockUnLock",
    "OsRwLockWrLock",
    "OsSigAddSet",
    "OsSigEmptySet",
    "OsTaskCreate",
    "OsTaskRun",
    "OsTmrCreate",
    "OsTmrDelete",
    "OsTmrManagerInit",
    "memcpy_s",
    "memset_s",
    "sprintf_s",
    "strcpy_s",
    "strncpy_s",
    "vsnprintf_s",
});

struct Planned {
    uint32_t code{};
    unsigned times{};
    unsigned skip{};
};

// The plans of a function follow one another.
std::map<std::string, std::deque<Planned>, std::less<>>& Plans() {
    static auto& plans = *new std::map<std::string, std::deque<Planned>, std::less<>>;
    return plans;
}

}  // namespace

void Fail(std::string_view function, uint32_t code, unsigned times, unsigned skip) {
    if (std::ranges::find(kFunctions, function) == kFunctions.end()) {
        Die("Fail: there is no function " + std::string(function) + " that can fail");
    }
    const Lock lock = Hold();
    if (times != 0) {
        Plans()[std::string(function)].push_back({code, times, skip});
    }
}

std::optional<uint32_t> Failure(const Lock& /*lock*/, std::string_view function) {
    const auto plan = Plans().find(function);
    if (plan == Plans().end() || plan->second.empty()) {
        return std::nullopt;
    }
    Planned& next = plan->second.front();
    if (next.skip != 0) {
        --next.skip;
        return std::nullopt;
    }
    const uint32_t code = next.code;
    if (--next.times == 0) {
        plan->second.pop_front();
    }
    return code;
}

void ResetFailures() {
    Plans().clear();
}

}  // namespace kivo::fake
