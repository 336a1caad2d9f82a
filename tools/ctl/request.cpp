// The commands that ask once: run and state.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "text/text.h"

namespace ominspect::ctl {
namespace {

struct RunOptions {
    std::vector<std::string> items;
    std::string cmd;
    std::chrono::seconds limit{310};  // the server gives an item's owner 300 s
    bool json = false;
};

struct StateOptions {
    std::string item;
    std::chrono::seconds limit{10};
    bool json = false;
};

void PrintLine(const std::string& line) {
    (void)std::printf("%s\n", line.c_str());
}

void PrintError(const std::string& item, const client::Error& error) {
    (void)std::fprintf(stderr, "ominspectctl: %s: %s\n", text::Escaped(item).c_str(), error.text.c_str());
}

ExitCode Report(const std::string& item, const client::Error& error, bool json) {
    if (json) PrintLine(ErrorJson(item, error));
    PrintError(item, error);
    return ExitCodeOf(error);
}

ExitCode CodeOfReply(const client::RunReply& reply) {
    if (reply.outcome == client::RunOutcome::kPending) return kTimeLimit;
    return reply.result.status == "success" ? kPassed : kFailed;
}

// Shows the results of a run: rows as they come, or one document at the end.
class RunReport {
public:
    explicit RunReport(const RunOptions& options) : json_(options.json), nameWidth_(NameWidth(options.items)) {}

    void Add(const RunRow& row) {
        if (json_) {
            rows_.push_back(RunJson(row));
            return;
        }
        if (!headed_) PrintLine(RunHead(nameWidth_));
        headed_ = true;
        PrintLine(RunLine(nameWidth_, row));
        (void)std::fflush(stdout);
    }

    void Add(const std::string& item, const client::Error& error) {
        if (json_) rows_.push_back(ErrorJson(item, error));
        PrintError(item, error);
    }

    void Finish() const {
        if (json_) PrintLine(RunDocument(rows_));
    }

private:
    const bool json_;
    const std::size_t nameWidth_;
    bool headed_ = false;
    std::vector<std::string> rows_;
};

// Runs all items unless the server turns out not to be there.
ExitCode RunAll(const RunOptions& options, RunReport& report) {
    for (const std::string& item : options.items) {
        if (const auto error = client::CheckRequest(item, options.cmd)) {
            report.Add(item, *error);
            return ExitCodeOf(*error);
        }
    }
    const auto session = client::Session::Open();
    if (!session) {
        report.Add(options.items.front(), session.Failure());
        return ExitCodeOf(session.Failure());
    }
    ExitCode highest = kPassed;
    for (const std::string& item : options.items) {
        const auto begin = std::chrono::steady_clock::now();
        const auto reply = (*session)->Run(item, options.cmd, options.limit);
        const auto duration = std::chrono::steady_clock::now() - begin;
        if (reply) {
            report.Add({*reply, std::chrono::duration_cast<std::chrono::milliseconds>(duration)});
        } else {
            report.Add(item, reply.Failure());
        }
        const ExitCode code = reply ? CodeOfReply(*reply) : ExitCodeOf(reply.Failure());
        if (code == kUnreachable) return code;
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

ExitCode State(const StateOptions& options) {
    if (const auto error = client::CheckItemName(options.item)) return Report(options.item, *error, options.json);
    const auto session = client::Session::Open();
    if (!session) return Report(options.item, session.Failure(), options.json);
    const auto state = (*session)->State(options.item, options.limit);
    if (!state) return Report(options.item, state.Failure(), options.json);
    PrintLine(options.json ? StateJson(options.item, *state) : StateTable(options.item, *state));
    return kPassed;
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

void AddState(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<StateOptions>();
    CLI::App* command = app.add_subcommand("state", "Tells whether an item is idle");
    command->add_option("ITEM", options->item, "Item name, at most 31 bytes")->required();
    AddLimit(*command, options->limit, "Time limit (default 10)");
    AddJson(*command, options->json);
    command->callback([options, &chosen] { chosen = [options] { return State(*options); }; });
}

}  // namespace ominspect::ctl
