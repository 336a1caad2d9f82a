// The command group: several items at once, with their progress.
#include "ominspect/client/group.h"

#include <csignal>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "common/end_signals.h"
#include "group_display.h"
#include "history.h"
#include "ominspect/client/session.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

client::Result<std::vector<std::string>> ConfiguredItems(client::Session& session, const client::Limit& limit) {
    const auto catalogue = session.List(limit);
    if (!catalogue) {
        return catalogue.Failure();
    }
    std::vector<std::string> items;
    for (const client::ConfiguredItem& item : catalogue->items) {
        items.push_back(item.name);
    }
    if (items.empty()) {
        return client::Error{client::ErrorCode::kRefused, "the server has no configured items"};
    }
    return items;
}

// Where the session's events find the display, which is made when the items are known.
class DisplaySlot {
public:
    void Fill(std::shared_ptr<GroupDisplay> display) {
        const std::lock_guard lock(mutex_);
        display_ = std::move(display);
    }

    void OnRun(const client::ItemResult& result) {
        if (const auto display = Display()) {
            display->OnRun(result);
        }
    }

private:
    std::shared_ptr<GroupDisplay> Display() {
        const std::lock_guard lock(mutex_);
        return display_;
    }

    std::mutex mutex_;  // guards `display_`
    std::shared_ptr<GroupDisplay> display_;
};

std::optional<client::Error> RunOn(client::Session& session, const GroupOptions& options,
                                   const std::vector<std::string>& items, GroupDisplay& display,
                                   const client::Limit& limit) {
    History history;
    std::vector<client::Request> requests;
    requests.reserve(items.size());
    for (const std::string& item : items) {
        requests.push_back({item, options.cmd});
    }
    const client::GroupOptions group{
        .waitForTurn = options.waitForTurn,
        .onStart = [&](std::uint32_t id, std::size_t first, std::size_t count) { display.OnStart(id, first, count); },
        .onRecord =
            [&](const client::GroupRecord& record) {
                display.OnRecord(record);
                const auto now = std::chrono::system_clock::now();
                for (const client::GroupItem& item : record.items) {
                    history.Add(item.result, item.end.value_or(now));
                }
            },
        .onRefused = [&] { display.Say("the server runs a group of this name already (16); waiting for its end"); }};
    auto error = client::RunGroup(session, requests, group, limit);
    SaveHistory(history);
    return error;
}

}  // namespace

ExitCode Group(const GroupOptions& options) {
    if (options.items.empty() != options.all) {
        return Fail({client::ErrorCode::kInvalidArgument, "give either item names or --all"}, options.json);
    }
    for (const std::string& item : options.items) {
        if (const auto error = client::CheckRequest({item, options.cmd})) {
            return Fail(item, *error, options.json);
        }
    }
    // A closed pipe is an error of the output, and no reason to leave the group behind.
    (void)std::signal(SIGPIPE, SIG_IGN);
    const Interrupt interrupt(kInterrupted);  // before the session, whose threads inherit the mask
    const client::Limit limit(options.limit, interrupt.Token());
    DisplaySlot slot;
    const auto session = client::Session::Open(
        {.onRun = [&slot](const client::ItemResult& result) { slot.OnRun(result); }, .onBusy = {}, .onBusLost = {}});
    if (!session) {
        return Fail(session.Failure(), options.json);
    }
    if (const auto error = (*session)->Subscribe()) {
        return Fail(*error, options.json);
    }
    const auto items = options.all ? ConfiguredItems(**session, limit) : options.items;
    if (!items) {
        return Fail(items.Failure(), options.json);
    }
    if (items->size() > client::kGroupSlots) {
        const std::size_t groups = (items->size() + client::kGroupSlots - 1) / client::kGroupSlots;
        Complain(std::to_string(items->size()) + " items: " + std::to_string(groups) + " groups of at most " +
                 std::to_string(client::kGroupSlots) + ", one after the other");
    }

    const auto display = std::make_shared<GroupDisplay>(*items, options.json, [&interrupt] { interrupt.Cancel(); });
    slot.Fill(display);
    const auto error = RunOn(**session, options, *items, *display, limit);
    const bool passed = display->Finish(error);
    if (!error) {
        return passed ? kPassed : kFailed;
    }
    Complain(error->code == client::ErrorCode::kGroupBusy ? error->text + " (16); --wait waits for its end"
                                                          : error->text);
    return ExitCodeOf(*error);
}

}  // namespace ominspect::ctl
