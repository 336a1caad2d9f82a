// The command wait: for scripts that have just started the bus, the server or an owner.
#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "common/end_signals.h"
#include "common/pause.h"
#include "common/text.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

constexpr std::chrono::milliseconds kPeriod{200};

// What is not there yet.
struct Missing {
    client::Error reason;
    std::vector<std::string> items;
};

// After a restart of the server its owners show an item before they have registered it again.
bool IsRegistered(const client::Item& item) {
    return std::any_of(item.owners.begin(), item.owners.end(),
                       [](const client::ItemOwner& owner) { return owner.isRegistered; });
}

// Looks again and again, over one connection as long as that lasts.
class Watcher {
public:
    Watcher(const std::vector<std::string>& items, const client::Limit& limit) : items_(items), limit_(limit) {}

    // Nothing when everything is there.
    std::optional<Missing> Look() {
        if (!session_) {
            auto session = client::Session::Open();
            if (!session) {
                return Missing{session.Failure(), items_};
            }
            session_ = std::move(*session);
        }
        auto error = items_.empty() ? LookForServer() : LookForItems();
        if (error && error->reason.code == client::ErrorCode::kBusUnreachable) {
            session_.reset();  // it was there, and may come back
        }
        return error;
    }

private:
    std::optional<Missing> LookForServer() {
        const auto state = session_->State("ominspectctl", limit_);
        return state ? std::nullopt : std::optional(Missing{state.Failure(), {}});
    }

    std::optional<Missing> LookForItems() {
        const auto inventory = session_->Items(limit_);
        if (!inventory) {
            return Missing{inventory.Failure(), items_};
        }
        std::vector<std::string> missing;
        std::copy_if(items_.begin(), items_.end(), std::back_inserter(missing), [&](const std::string& item) {
            return std::none_of(inventory->items.begin(), inventory->items.end(),
                                [&](const client::Item& one) { return one.name == item && IsRegistered(one); });
        });
        if (missing.empty()) {
            return std::nullopt;
        }
        const client::Error reason{client::ErrorCode::kTimeLimit, UnseenItemText(missing.front())};
        return Missing{reason, std::move(missing)};
    }

    const std::vector<std::string>& items_;
    const client::Limit& limit_;
    std::unique_ptr<client::Session> session_;
};

bool MayPass(client::ErrorCode code) {
    return code == client::ErrorCode::kServerAbsent || code == client::ErrorCode::kBusUnreachable ||
           code == client::ErrorCode::kTimeLimit || code == client::ErrorCode::kRefused;
}

ExitCode Give(const WaitOptions& options, const client::Error& error, const std::vector<std::string>& missing) {
    if (options.json) {
        auto names = json::Value::Array();
        for (const std::string& item : missing) {
            names.AddText(item);
        }
        PrintLine(json::Value::Object().Put("missing", std::move(names)).Put("error", ErrorJson(error)).Print());
    }
    Complain(text::Escaped(error.text));
    return ExitCodeOf(error);
}

}  // namespace

ExitCode Wait(const WaitOptions& options) {
    for (const std::string& item : options.items) {
        if (const auto error = client::CheckItemName(item)) {
            return Fail(item, *error, options.json);
        }
    }
    const Interrupt interrupt(kInterrupted);  // before the session, whose threads inherit the mask
    const client::Limit limit(options.limit, interrupt.Token());
    Watcher watcher(options.items, limit);
    std::optional<Missing> missing;
    for (;;) {
        auto seen = watcher.Look();
        if (!seen) {
            if (options.json) {
                PrintLine(json::Value::Object().Put("missing", json::Value::Array()).Print());
            }
            return kPassed;
        }
        // The last look may have had no time left for an answer: then the one before says more.
        const bool over = limit.Left().count() == 0;
        if (!over || !missing) {
            missing = std::move(seen);
        }
        if (limit.Cancelled()) {
            return Give(options, {client::ErrorCode::kCancelled, "cancelled"}, missing->items);
        }
        if (!MayPass(missing->reason.code)) {
            return Give(options, missing->reason, missing->items);
        }
        if (over) {
            return Give(options, {client::ErrorCode::kTimeLimit, "the time limit is over; " + missing->reason.text},
                        missing->items);
        }
        (void)Pause(std::min(kPeriod, limit.Left()), limit.Cancel());
    }
}

}  // namespace ominspect::ctl
