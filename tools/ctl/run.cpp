// The command run: items one after the other, in the background of the server, which goes on serving everybody else.
#include "ominspect/client/run.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "common/end_signals.h"
#include "common/text.h"
#include "history.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

using Clock = std::chrono::steady_clock;

// Shows the results of a run: rows as they come, or one document at the end.
class RunReport {
public:
    explicit RunReport(const RunOptions& options)
        : json_(options.json),
          isRun_(client::KindOf({"", options.cmd}) == client::RequestKind::kRun),
          nameWidth_(NameWidth(options.items)),
          rows_(json::Value::Array()) {}

    void Add(const RunRow& row) {
        if (isRun_) {  // the answer to a stop is no result of the item
            history_.Add(row.result, std::chrono::system_clock::now());
        }
        if (json_) {
            rows_.Add(RunJson(row));
            return;
        }
        if (!headed_) {
            PrintLine(RunHead(nameWidth_));
        }
        headed_ = true;
        PrintLine(RunLine(nameWidth_, row));
    }

    ExitCode Add(const std::string& item, const client::Error& error) {
        if (json_) {
            rows_.Add(ErrorJson(item, error));
        }
        Complain(item, error);
        return ExitCodeOf(error);
    }

    void Finish() {
        SaveHistory(history_);
        if (json_) {
            PrintLine(json::Value::Object().Put("results", std::move(rows_)).Print());
        }
    }

private:
    const bool json_;
    const bool isRun_;
    const std::size_t nameWidth_;
    bool headed_ = false;
    json::Value rows_;
    History history_;
};

// Runs an item without holding up the server, or joins the run that is under way.
client::Result<client::ItemResult> RunInBackground(client::Session& session, const client::Request& request, bool join,
                                                   const client::Limit& limit) {
    const std::string item = text::Escaped(request.item);
    const client::RunOptions options{
        .join = join,
        .leaveRunning = false,
        .onOther =
            [&] {
                if (!join) {
                    Complain(item + ": another run of it is under way; it is run again after that");
                }
            },
        .onRunning = {}};
    auto outcome = client::RunItem(session, request, options, limit);
    if (!outcome) {
        return outcome.Failure();
    }
    if (outcome->isOther && !join) {
        Complain(item + ": this is the result of another run, which the server does not let go");
    }
    return std::move(outcome->result);
}

// The server serves nobody else until the item's owner has answered.
client::Result<client::ItemResult> RunSynchronously(client::Session& session, const client::Request& request,
                                                    const client::Limit& limit) {
    auto reply = session.Run(request, limit);
    if (!reply) {
        client::Error error = reply.Failure();
        if (error.code == client::ErrorCode::kTimeLimit || error.code == client::ErrorCode::kCancelled) {
            error.text += "; the server goes on waiting for the item's owner";
        }
        return error;
    }
    if (!reply->isPending) {
        return std::move(reply->result);
    }
    Complain(text::Escaped(request.item) + ": no result at once; waiting for the run that is under way");
    return RunInBackground(session, request, true, limit);
}

client::Result<client::ItemResult> RunOne(client::Session& session, const RunOptions& options, const std::string& item,
                                          const client::Limit& limit) {
    const client::Request request{item, options.cmd};
    auto result =
        options.sync ? RunSynchronously(session, request, limit) : RunInBackground(session, request, false, limit);
    if (result && request.cmd == "done") {
        // The server's answer has no status: it is the same for items that it does not know.
        const auto known = HasOwner(session, item, limit);
        if (!known) {
            return known.Failure();
        }
        return *known ? client::ItemResult{item, "idle", "reset"} : client::ItemResult{item, "fail", "no support"};
    }
    return result;
}

bool IsGone(const client::Error& error) {
    return error.code == client::ErrorCode::kServerAbsent || error.code == client::ErrorCode::kBusUnreachable ||
           error.code == client::ErrorCode::kDenied;
}

// What keeps the items after this error from being run, if anything.
std::optional<client::Error> EndOfRun(const client::Error& error) {
    if (error.code == client::ErrorCode::kCancelled) {
        return client::Error{error.code, "cancelled; not run"};
    }
    return IsGone(error) ? std::optional(error) : std::nullopt;
}

// Every item is answered for, by a result or an error.
ExitCode RunAll(const RunOptions& options, RunReport& report) {
    for (const std::string& item : options.items) {
        if (const auto error = client::CheckRequest({item, options.cmd})) {
            return report.Add(item, *error);
        }
    }
    const Interrupt interrupt(kInterrupted);  // before the session, whose threads inherit the mask
    const auto session = client::Session::Open();
    std::optional<client::Error> end;
    if (!session) {
        end = session.Failure();
    }
    ExitCode highest = kPassed;
    for (const std::string& item : options.items) {
        if (end) {
            highest = std::max(highest, report.Add(item, *end));
            continue;
        }
        const auto begin = Clock::now();
        const auto result = RunOne(**session, options, item, {options.limit, interrupt.Token()});
        if (!result) {
            highest = std::max(highest, report.Add(item, result.Failure()));
            end = EndOfRun(result.Failure());
            continue;
        }
        report.Add(RunRow{*result, {std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin)}});
        const bool isReset = options.cmd == "done" && result->status == "idle";
        highest = std::max(highest, isReset ? kPassed : CodeOfStatus(result->status));
    }
    return highest;
}

}  // namespace

ExitCode Run(const RunOptions& options) {
    RunReport report(options);
    const ExitCode code = RunAll(options, report);
    report.Finish();
    return code;
}

}  // namespace ominspect::ctl
