// An item is in `running_` from its start until its outcome is known; a synchronous one only from when its command is
// left to the runner.
#include "items/item_table.h"

#include <algorithm>
#include <utility>

#include "items/mapping.h"
#include "items/perfdata.h"

namespace ominspect::items {
namespace {

constexpr std::string_view kEnding = "the owner is ending";
constexpr std::string_view kTooMany = "too many requests wait";

tagKivoOmInspectionResult EndingResult(const ItemConfig& item) {
    tagKivoOmInspectionResult result{};
    item.name.copy(result.name, sizeof result.name - 1);
    SetResult(result, "fail", kEnding);
    return result;
}

}  // namespace

ItemTable::ItemTable(const OwnerConfig& config, Report report, Publish publish, Defer defer, const Times& times)
    : report_(std::move(report)),
      publish_(std::move(publish)),
      defer_(std::move(defer)),
      times_(times),
      maxLeft_(config.maxParallel),
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
    {
        const std::lock_guard lock(mutex_);
        if (MustWait(item)) {
            if (Answer answer = defer_()) {
                waiting_.push_back({&item, argument, std::move(answer)});
            } else {
                SetResult(result, "fail", kTooMany);
            }
            return;
        }
    }
    const auto ran = runner_.Run(SpecOf(item, argument), [this, &item](auto id) { return Leave(item, id); });
    if (ran.outcome) {
        result = TakeOutcome(item, *ran.outcome);
    } else if (ran.id == 0) {
        SetResult(result, "fail", kEnding);
    }
}

// With the lock.
bool ItemTable::MustWait(const ItemConfig& item) const {
    const auto isOfItem = [&item](const Waiting& waiting) { return waiting.item == &item; };
    return left_ >= maxLeft_ || running_.contains(&item) || std::ranges::any_of(waiting_, isOfItem);
}

CommandRunner::Done ItemTable::Leave(const ItemConfig& item, CommandRunner::Id id) {
    Answer answer = defer_();
    if (!answer) {
        return nullptr;
    }
    const std::lock_guard lock(mutex_);
    running_.emplace(&item, id);
    ++left_;
    return DoneOf(item, std::move(answer));
}

// The end of a synchronous run that was left.
CommandRunner::Done ItemTable::DoneOf(const ItemConfig& item, Answer answer) {
    return [this, &item, answer = std::move(answer)](const CommandOutcome& outcome) {
        {
            const std::lock_guard lock(mutex_);
            running_.erase(&item);
            --left_;
        }
        answer(TakeOutcome(item, outcome));
        StartWaiting();
    };
}

// Starts what has waited and needs to wait no longer; when the runner shuts down, that is refused.
void ItemTable::StartWaiting() {
    std::deque<Waiting> refused;
    {
        const std::lock_guard lock(mutex_);
        for (auto next = waiting_.begin(); next != waiting_.end() && left_ < maxLeft_;) {
            if (running_.contains(next->item)) {
                ++next;
                continue;
            }
            const auto id = runner_.Start(SpecOf(*next->item, next->argument), DoneOf(*next->item, next->answer));
            if (id == 0) {
                refused.swap(waiting_);
                break;
            }
            running_.emplace(next->item, id);
            ++left_;
            next = waiting_.erase(next);
        }
    }
    for (const Waiting& waiting : refused) {
        waiting.answer(EndingResult(*waiting.item));
    }
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
