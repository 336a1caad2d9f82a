// The command run: items one after the other. Those that answer at once are run synchronously, others in the
// background.
#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "commands.h"
#include "common/text.h"
#include "history.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

using Clock = std::chrono::steady_clock;

struct RunOptions {
    std::vector<std::string> items;
    std::string cmd;
    std::chrono::seconds limit{310};  // the server gives an item's owner 300 s
    bool json = false;
};

// Shows the results of a run: rows as they come, or one document at the end.
class RunReport {
public:
    explicit RunReport(const RunOptions& options)
        : json_(options.json), nameWidth_(NameWidth(options.items)), rows_(json::Value::Array()) {}

    void Add(const RunRow& row) {
        history_.Add(row.result, std::chrono::system_clock::now());
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

    void Add(const std::string& item, const client::Error& error) {
        if (json_) {
            rows_.Add(ErrorJson(item, error));
        }
        Complain(item, error);
    }

    void Finish() {
        SaveHistory(history_);
        if (!json_) {
            return;
        }
        PrintLine(json::Value::Object().Put("results", std::move(rows_)).Print());
    }

private:
    const bool json_;
    const std::size_t nameWidth_;
    bool headed_ = false;
    json::Value rows_;
    History history_;
};

// Runs items; knows which of them answer at once.
class Runner {
public:
    Runner(client::Session& session, const client::Catalogue& catalogue) : session_(session) {
        for (const client::ConfiguredItem& item : catalogue.items) {
            if (item.isSync) {
                sync_.insert(item.name);
            }
        }
    }

    client::Result<client::ItemResult> Run(const client::Request& request, const client::Limit& limit) {
        if (sync_.contains(request.item)) {
            auto reply = session_.Run(request, limit);
            if (!reply) {
                return reply.Failure();
            }
            if (!reply->isPending) {
                return std::move(reply->result);
            }
            // The run goes on; starting the item joins it.
            Complain(text::Escaped(request.item) +
                     " gave no result at once: somebody else's run of it is under way, or it is configured as "
                     "synchronous and its owner reports later");
        }
        auto run = session_.Start(request, limit);
        if (!run) {
            return run.Failure();
        }
        auto result = run->Await(limit);
        if (!result && result.Failure().code == client::ErrorCode::kTimeLimit) {
            return client::Error{client::ErrorCode::kTimeLimit, "no result within the time limit; the item still runs"};
        }
        return result;
    }

private:
    client::Session& session_;
    std::set<std::string> sync_;
};

bool IsGone(const client::Error& error) {
    return error.code == client::ErrorCode::kServerAbsent || error.code == client::ErrorCode::kBusUnreachable ||
           error.code == client::ErrorCode::kDenied;
}

// Runs all items unless the server turns out not to be there.
ExitCode RunAll(const RunOptions& options, RunReport& report) {
    const auto give = [&report](const std::string& item, const client::Error& error) {
        report.Add(item, error);
        return ExitCodeOf(error);
    };
    for (const std::string& item : options.items) {
        if (const auto error = client::CheckRequest({item, options.cmd})) {
            return give(item, *error);
        }
    }
    const auto session = client::Session::Open();
    if (!session) {
        return give(options.items.front(), session.Failure());
    }
    const auto catalogue = (*session)->List(options.limit);
    if (!catalogue) {
        return give(options.items.front(), catalogue.Failure());
    }

    Runner runner(**session, *catalogue);
    ExitCode highest = kPassed;
    for (const std::string& item : options.items) {
        const auto begin = Clock::now();
        const auto result = runner.Run({item, options.cmd}, options.limit);
        ExitCode code = kPassed;
        if (result) {
            report.Add(RunRow{*result, {std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin)}});
            code = CodeOfStatus(result->status);
        } else {
            code = give(item, result.Failure());
        }
        if (!result && IsGone(result.Failure())) {
            return code;
        }
        highest = std::max(highest, code);
    }
    return highest;
}

ExitCode Run(const RunOptions& options) {
    RunReport report(options);
    const ExitCode code = RunAll(options, report);
    report.Finish();
    return code;
}

}  // namespace

void AddRun(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<RunOptions>();
    CLI::App* command = app.add_subcommand("run", "Runs items, one after the other, and shows their results");
    command->add_option("ITEM", options->items, "Item names, at most 31 bytes each")->required();
    command
        ->add_option("--cmd", options->cmd,
                     R"(The item's argument, at most 127 bytes; "stop" stops it, "done" resets it)")
        ->type_name("TEXT");
    AddLimit(*command, options->limit, "Time limit of each item (default 310)");
    AddJson(*command, options->json);
    command->callback([options, &chosen] { chosen = [options] { return Run(*options); }; });
}

}  // namespace ominspect::ctl
