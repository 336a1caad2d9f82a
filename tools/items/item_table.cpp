// An item is in `running_` from its start until its outcome is known; a synchronous one only from when its command is
// left to the runner.
#include "items/item_table.h"

#include <algorithm>
#include <new>
#include <utility>

#include "items/mapping.h"
#include "items/perfdata.h"

namespace ominspect::items {
namespace {

constexpr std::string_view kEnding = "the owner is ending";
constexpr std::string_view kTooMany = "too many requests wait";
constexpr std::string_view kNoMemory = "not enough memory";

tagKivoOmInspectionResult ResultOf(const ItemConfig& item, std::string_view status, std::string_view text) {
    tagKivoOmInspectionResult result{};
    item.name.copy(result.name, sizeof result.name - 1);
    SetResult(result, status, text);
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
            .settle = item.isSync ? std::chrono::milliseconds(0) : times_.settle,
            .release = {}};
}

// The run has ended, whether or not there is memory to say how.
tagKivoOmInspectionResult ItemTable::TakeOutcome(const ItemConfig& item, const CommandOutcome& outcome) {
    try {
        PublishValues(item, outcome);
        return MakeResult(item.name, item.argv[0], item.limit, outcome);
    } catch (const std::bad_alloc&) {
        return ResultOf(item, "unknown", kNoMemory);
    }
}

void ItemTable::PublishValues(const ItemConfig& item, const CommandOutcome& outcome) {
    const auto values = MeasuredBy(outcome);
    bool isTold = false;
    {
        const std::lock_guard lock(mutex_);
        isTold = values.empty() ? measuring_.erase(&item) > 0 : (measuring_.insert(&item), true);
    }
    if (isTold) {
        publish_(item.name, values);
    }
}

void ItemTable::HandleStop(const ItemConfig& item, tagKivoOmInspectionResult& result) {
    const std::lock_guard lock(mutex_);
    const auto found = running_.find(&item);
    if (found == running_.end()) {
        SetResult(result, "fail", "not running");
        return;
    }
    runner_.Stop(found->second.id);
    SetResult(result, "success", "stopping");
}

void ItemTable::RunSync(const ItemConfig& item, const std::string& argument, tagKivoOmInspectionResult& result) {
    {
        const std::lock_guard lock(mutex_);
        if (MustWait(item)) {
            // Once an answer is deferred it must be given, so what needs memory comes first.
            const Waiting& waiting = waiting_.emplace_back(Waiting{&item, argument, std::make_shared<Answer>(), {}});
            *waiting.answer = defer_();
            if (!*waiting.answer) {
                waiting_.pop_back();
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
    const auto answer = std::make_shared<Answer>();
    auto done = DoneOf(item, answer);
    const std::lock_guard lock(mutex_);
    running_.emplace(&item, Running{id, {}});
    *answer = defer_();
    if (!*answer) {
        running_.erase(&item);
        return nullptr;
    }
    ++left_;
    return done;
}

// The end of a synchronous run that was left.
CommandRunner::Done ItemTable::DoneOf(const ItemConfig& item, std::shared_ptr<Answer> answer) {
    return [this, &item, answer = std::move(answer)](const CommandOutcome& outcome) {
        {
            const std::lock_guard lock(mutex_);
            running_.erase(&item);
            --left_;
        }
        (*answer)(TakeOutcome(item, outcome));
        StartWaiting();
    };
}

// Starts what has waited and needs to wait no longer. What cannot be started is refused: nobody would start it later.
void ItemTable::StartWaiting() {
    std::list<Waiting> refused;
    {
        const std::lock_guard lock(mutex_);
        for (auto next = waiting_.begin(); next != waiting_.end() && left_ < maxLeft_;) {
            const auto waiting = next++;
            if (running_.contains(waiting->item)) {
                continue;
            }
            waiting->refusal = TryStart(*waiting);
            if (waiting->refusal.empty()) {
                ++left_;
                waiting_.erase(waiting);
            } else {
                refused.splice(refused.end(), waiting_, waiting);
            }
        }
    }
    for (const Waiting& waiting : refused) {
        (*waiting.answer)(ResultOf(*waiting.item, "fail", waiting.refusal));
    }
}

// With the lock; the reason, if it is not started.
std::string_view ItemTable::TryStart(const Waiting& waiting) {
    try {
        return Start(*waiting.item, waiting.argument, DoneOf(*waiting.item, waiting.answer)) ? "" : kEnding;
    } catch (const std::bad_alloc&) {
        return kNoMemory;
    }
}

// With the lock. False when the runner shuts down. Throws std::bad_alloc, and has no effect then.
bool ItemTable::Start(const ItemConfig& item, const std::string& argument, CommandRunner::Done done) {
    const auto place = running_.emplace(&item, Running{}).first;
    try {
        CommandSpec spec = SpecOf(item, argument);
        if (!item.isSync) {
            spec.release = [this, &item](auto now) { return Release(item, now); };
        }
        place->second.id = runner_.Start(std::move(spec), std::move(done));
    } catch (const std::bad_alloc&) {
        running_.erase(place);
        throw;
    }
    if (place->second.id == 0) {
        running_.erase(place);
        return false;
    }
    return true;
}

// When the outcome of an asynchronous run may be reported. If it may now, the run is over: no request joins it any
// more.
ItemTable::Clock::time_point ItemTable::Release(const ItemConfig& item, Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    const auto run = running_.find(&item);
    const auto free = run->second.answered + times_.settle;
    if (free <= now) {
        running_.erase(run);
    }
    return free;
}

void ItemTable::RunAsync(const ItemConfig& item, const std::string& argument, tagKivoOmInspectionResult& result) {
    const std::lock_guard lock(mutex_);
    if (!running_.contains(&item)) {
        const auto done = [this, &item](const CommandOutcome& outcome) { report_(TakeOutcome(item, outcome)); };
        if (!Start(item, argument, done)) {
            SetResult(result, "fail", kEnding);
            return;
        }
    }
    running_.at(&item).answered = Clock::now();
    SetResult(result, "running", "");
}

}  // namespace ominspect::items
