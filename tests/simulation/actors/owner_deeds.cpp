// Words of all kinds are a status.
#include "actors/owner_deeds.h"

#include "actors/actors.h"
#include "model/ledger.h"
#include "world/choices.h"
#include "world/process.h"

namespace sim {

namespace {

void Pass(Micros time) {
    const InPlatform platform;
    Point();
    (void)Wait("its own work", nullptr, Now() + time);
}

std::string PickStatus() {
    return PickOf("success", "fail", "warn", "idle", "done", "");
}

Micros PickTime() {
    if (TheManners().slow) {
        return (1 + Pick(400)) * kSecond;
    }
    return PickOf(1U, 20U, 1500U, 3000U, 61000U) * kMilli;
}

void ReportLater(const std::string& item, const Report& report) {
    const uint32_t progress = OneIn(4) ? 1 + Pick(3) : 0;
    for (uint32_t i = 0; i < progress; ++i) {
        Pass(PickTime());
        report(Utter(item, "running", "step " + std::to_string(i)));
    }
    Pass(PickTime());
    report(Utter(item, PickStatus(), "measured"));
}

}  // namespace

tagKivoOmInspectionResult MakeRecord(const std::string& name, const std::string& status, const std::string& text) {
    tagKivoOmInspectionResult result{};
    name.copy(result.name, sizeof result.name - 1);
    status.copy(result.status, sizeof result.status - 1);
    text.copy(result.text, sizeof result.text - 1);
    return result;
}

tagKivoOmInspectionResult Utter(const std::string& name, const std::string& status, const std::string& text) {
    static uint64_t last = 0;
    const auto result = MakeRecord(name, status, text + " " + std::to_string(++last));
    const InPlatform platform;
    model::TheLedger().Say(model::WordsOf(result));
    return result;
}

void RunOwned(const std::string& item, const std::string& request, tagKivoOmInspectionResult& result,
              const Report& report) {
    const bool stop = request.find("\"stop\"") != std::string::npos;
    if (stop && OneIn(2)) {
        report(Utter(item, "fail", "stopped"));
    }
    switch (Pick(8)) {
        default:
            result = Utter(item, PickStatus(), "ok");
            break;
        case 2:
            Pass(PickTime());
            result = Utter(item, PickStatus(), "after a while");
            break;
        case 3:
        case 4:
        case 5: {
            result = Utter(item, "running", "");
            const InPlatform platform;
            Spawn(CurrentProcess(), "worker", [item, report] { ReportLater(item, report); });
            break;
        }
        case 6:
            result = Utter(item, TheManners().silent ? "running" : "success", "nothing follows");
            break;
        case 7:
            if (TheManners().silent) {
                Pass(301 * kSecond);
            }
            result = Utter(item, "success", "late");
            break;
    }
}

}  // namespace sim
