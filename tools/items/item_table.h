// The owner's items and which of them run: answers run and stop requests.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "items/config.h"
#include "items/runner.h"
#include "ominspect/client/types.h"
#include "ominspect/records.h"

namespace ominspect::items {

// How long after an item's own limit the server gives up its run. Ending the command takes a while, and the owner's
// result says more than the server's "timeout".
constexpr std::chrono::milliseconds kServerGrace{5000};

class ItemTable {
public:
    // Takes the result of a run that was answered with "running". Called on the runner's thread.
    using Report = std::function<void(const tagKivoOmInspectionResult&)>;

    // Gives the answer of a request from any thread.
    using Answer = std::function<void(const tagKivoOmInspectionResult&)>;
    // Lets the request that is being handled be answered later; null where that is not possible.
    using Defer = std::function<Answer()>;

    // Takes what a run has measured, before its result is answered or reported: on the thread of either. Nothing comes
    // for an item that measures nothing, but for the first run after one that did.
    using Publish = std::function<void(const std::string& item, const std::vector<client::PerfValue>& values)>;

    struct Times {
        std::chrono::milliseconds termGrace{2000};
        // A report that comes before the server has handled the answer "running" is overwritten by that answer. So no
        // report follows sooner than this, also after the last request that joined the run: of a server that has
        // forgotten the run, that is the first.
        std::chrono::milliseconds settle{500};
    };

    // `config` must outlive the table. Throws as CommandRunner does.
    ItemTable(const OwnerConfig& config, Report report, Publish publish, Defer defer, const Times& times);
    ItemTable(const OwnerConfig& config, Report report, Publish publish, Defer defer)
        : ItemTable(config, std::move(report), std::move(publish), std::move(defer), Times()) {}

    // Answers a request in `result`, whose name is set already; false for an item that is not in the table.
    // "stop" ends the item's run: "success" with "stopping", or "fail" with "not running". Anything else is the
    // argument of a run. An asynchronous item is answered with "running" and reported later; a request for one that
    // already runs joins that run. A synchronous item's command is waited for if it is short, else the answer is
    // deferred; the runs of one item follow each other, and at most maxParallel items run this way.
    // One thread at a time. Throws std::bad_alloc and std::system_error; then no run has begun, and no answer is
    // deferred.
    bool Handle(const std::string& item, const std::string& argument, tagKivoOmInspectionResult& result);

    // Ends all commands, has their results reported or answered, and refuses further requests.
    void Shutdown();

private:
    using Clock = std::chrono::steady_clock;

    struct Running {
        CommandRunner::Id id = 0;
        Clock::time_point answered;  // when a request was last answered with "running"
    };
    struct Waiting {
        const ItemConfig* item;
        std::string argument;
        std::shared_ptr<Answer> answer;
        std::string_view refusal;  // why it is not started
    };

    CommandSpec SpecOf(const ItemConfig& item, const std::string& argument) const;
    tagKivoOmInspectionResult TakeOutcome(const ItemConfig& item, const CommandOutcome& outcome);
    void PublishValues(const ItemConfig& item, const CommandOutcome& outcome);
    void HandleStop(const ItemConfig& item, tagKivoOmInspectionResult& result);
    void RunSync(const ItemConfig& item, const std::string& argument, tagKivoOmInspectionResult& result);
    bool MustWait(const ItemConfig& item) const;
    CommandRunner::Done Leave(const ItemConfig& item, CommandRunner::Id id);
    CommandRunner::Done DoneOf(const ItemConfig& item, std::shared_ptr<Answer> answer);
    void StartWaiting();
    std::string_view TryStart(const Waiting& waiting);
    bool Start(const ItemConfig& item, const std::string& argument, CommandRunner::Done done);
    Clock::time_point Release(const ItemConfig& item, Clock::time_point now);
    void RunAsync(const ItemConfig& item, const std::string& argument, tagKivoOmInspectionResult& result);

    std::map<std::string, const ItemConfig*, std::less<>> items_;

    const Report report_;
    const Publish publish_;
    const Defer defer_;
    const Times times_;
    const std::size_t maxLeft_;
    std::mutex mutex_;                       // guards the runs below, and measuring_
    std::set<const ItemConfig*> measuring_;  // whose last run has measured something
    std::map<const ItemConfig*, Running> running_;
    std::size_t left_ = 0;        // those of them that are synchronous, and were left to the runner
    std::list<Waiting> waiting_;  // synchronous
    CommandRunner runner_;        // last: its thread uses the rest
};

}  // namespace ominspect::items
