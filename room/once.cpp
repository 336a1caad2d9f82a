// One thread starts all, waits for all, and ends all when it is told to.
#include "once.h"

#include "common/end_signals.h"
#include "items/jobs.h"
#include "items/mapping.h"

namespace room {

using ominspect::items::CommandOutcome;
using ominspect::items::Jobs;

std::optional<std::vector<tagKivoOmInspectionResult>> LookOnce(const std::vector<Item>& items,
                                                               const std::vector<std::string>& command) {
    ominspect::EndSignals signals;
    std::vector<tagKivoOmInspectionResult> results(items.size());
    Jobs jobs({.maxParallel = static_cast<unsigned>(items.size())});
    for (std::size_t index = 0; index < items.size(); ++index) {
        const Item& item = items[index];
        const std::chrono::seconds limit(item.limitSeconds);
        std::vector<std::string> argv = command;
        argv.emplace_back(item.name);
        jobs.Add(
            index, {.argv = argv, .item = std::string(item.name), .argument = "", .limit = limit},
            [&results, &item, index, limit, program = argv[0]](const CommandOutcome& outcome) {
                results[index] = ominspect::items::MakeResult(std::string(item.name), program, limit, outcome);
            },
            Jobs::Clock::now());
    }
    bool ended = false;
    for (jobs.Step(); !jobs.IsEmpty(); jobs.Step()) {
        jobs.Wait(signals.Fd());
        if (signals.Count() > 0 && !ended) {
            ended = true;
            jobs.StopAll();
        }
    }
    return ended ? std::nullopt : std::optional(std::move(results));
}

}  // namespace room
