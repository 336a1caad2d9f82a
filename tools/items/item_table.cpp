// An asynchronous item is in `running_` from its start until its outcome is known.
#include "items/item_table.h"

#include <utility>

#include "items/mapping.h"
#include "items/perfdata.h"

namespace ominspect::items {
namespace {

constexpr std::string_view kEnding = "the owner is ending";

}  // namespace

ItemTable::ItemTable(const OwnerConfig& config, Report report, Publish publish, const Times& times)
    : report_(std::move(report)),
      publish_(std::move(publish)),
      times_(times),
      runner_({.maxParallel = config.maxParallel, .termGrace = times.termGrace}) {
    for (const ItemConfig& item : config.items) {
        items_.emplace(item.name, &item);
    }
}

bool ItemTable::Handle(const std::string& item, const std::string& argument, tagKivoOmInspectionResult& result) {
    const auto found = items_.find(item);
    if (found == items_.end()) {
        return false;
    }
    if (argument == "stop") {
        HandleStop(*found->second, result);
    } else if (found->second->isSync) {
        RunSync(*found->second, argument, result);
    } else {
        RunAsync(*found->second, argument, result);
    }
    return true;
}

void ItemTable::Shutdown() {
    runner_.Shutdown();
}

CommandSpec ItemTable::SpecOf(const ItemConfig& item, const std::string& argument) const {
    return {.argv = item.argv,
            .item = item.name,
            .argument = argument,
            .limit = item.limit,
            .settle = item.isSync ? std::chrono::milliseconds(0) : times_.settle};
}

tagKivoOmInspectionResult ItemTable::TakeOutcome(const ItemConfig& item, const CommandOutcome& outcome) {
    const auto values = MeasuredBy(outcome);
    bool isTold = false;
    {
        const std::lock_guard lock(mutex_);
        isTold = values.empty() ? measuring_.erase(&item) > 0 : (measuring_.insert(&item), true);
    }
    if (isTold) {
        publish_(item.name, values);
    }
    return MakeResult(item.name, item.argv[0], item.limit, outcome);
}

void ItemTable::HandleStop(const ItemConfig& item, tagKivoOmInspectionResult& result) {
    const std::lock_guard lock(mutex_);
    const auto found = running_.find(&item);
    if (found == running_.end()) {
        SetResult(result, "fail", "not running");
        return;
    }
    runner_.Stop(found->second);
    SetResult(result, "success", "stopping");
}

void ItemTable::RunSync(const ItemConfig& item, const std::string& argument, tagKivoOmInspectionResult& result) {
    const auto outcome = runner_.Run(SpecOf(item, argument));
    if (!outcome) {
        SetResult(result, "fail", kEnding);
        return;
    }
    result = TakeOutcome(item, *outcome);
}

void ItemTable::RunAsync(const ItemConfig& item, const std::string& argument, tagKivoOmInspectionResult& result) {
    const std::lock_guard lock(mutex_);
    if (!running_.contains(&item)) {
        const auto id = runner_.Start(SpecOf(item, argument), [this, &item](const CommandOutcome& outcome) {
            {
                const std::lock_guard guard(mutex_);
                running_.erase(&item);
            }
            report_(TakeOutcome(item, outcome));
        });
        if (id == 0) {
            SetResult(result, "fail", kEnding);
            return;
        }
        running_.emplace(&item, id);
    }
    SetResult(result, "running", "");
}

}  // namespace ominspect::items
