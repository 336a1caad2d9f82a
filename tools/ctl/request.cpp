// The commands that ask once: state, reset and stop.
#include <memory>
#include <string>

#include "commands.h"
#include "common/text.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

struct ItemOptions {
    std::string item;
    std::chrono::seconds limit{10};
    bool json = false;
};

struct StopOptions {
    std::uint32_t taskId = 0;
    std::chrono::seconds limit{10};
    bool json = false;
};

ExitCode State(const ItemOptions& options) {
    if (const auto error = client::CheckItemName(options.item)) {
        return Fail(options.item, *error, options.json);
    }
    const auto session = client::Session::Open();
    if (!session) {
        return Fail(options.item, session.Failure(), options.json);
    }
    const auto state = (*session)->State(options.item, options.limit);
    if (!state) {
        return Fail(options.item, state.Failure(), options.json);
    }
    PrintLine(options.json ? StateJson(options.item, *state) : StateTable(options.item, *state));
    return kPassed;
}

ExitCode Reset(const ItemOptions& options) {
    if (const auto error = client::CheckItemName(options.item)) {
        return Fail(options.item, *error, options.json);
    }
    const auto session = client::Session::Open();
    if (!session) {
        return Fail(options.item, session.Failure(), options.json);
    }
    if (const auto error = (*session)->Reset(options.item, options.limit)) {
        return Fail(options.item, *error, options.json);
    }
    // The server says the same for an item that it does not know.
    PrintLine(options.json ? json::Value::Object().Text("item", options.item).Text("state", "idle").Print()
                           : text::Escaped(options.item) + " is idle (or unknown to the server)");
    return kPassed;
}

ExitCode Stop(const StopOptions& options) {
    const auto session = client::Session::Open();
    if (!session) {
        return Fail(session.Failure(), options.json);
    }
    const auto known = (*session)->StopTask(options.taskId, options.limit);
    if (!known) {
        return Fail(known.Failure(), options.json);
    }
    if (options.json) {
        PrintLine(json::Value::Object().Number("taskId", options.taskId).Flag("known", *known).Print());
    } else {
        PrintLine("task " + std::to_string(options.taskId) +
                  (*known ? " was asked to stop" : ": the server knows no such task, or it has ended"));
    }
    return *known ? kPassed : kFailed;
}

void AddItemCommand(CLI::App& app, Chosen& chosen, const char* name, const char* text,
                    ExitCode (*run)(const ItemOptions&)) {
    const auto options = std::make_shared<ItemOptions>();
    CLI::App* command = app.add_subcommand(name, text);
    command->add_option("ITEM", options->item, "Item name, at most 31 bytes")->required();
    AddLimit(*command, options->limit, "Time limit (default 10)");
    AddJson(*command, options->json);
    command->callback([options, run, &chosen] { chosen = [options, run] { return run(*options); }; });
}

}  // namespace

void AddState(CLI::App& app, Chosen& chosen) {
    AddItemCommand(app, chosen, "state", "Tells whether an item is idle", State);
}

void AddReset(CLI::App& app, Chosen& chosen) {
    AddItemCommand(app, chosen, "reset", "Sets an item back to idle; whoever waits for it gets that", Reset);
}

void AddStop(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<StopOptions>();
    CLI::App* command = app.add_subcommand("stop", "Stops a running group");
    command->add_option("TASKID", options->taskId, "The group's task id, as 'ominspectctl group' shows it")->required();
    AddLimit(*command, options->limit, "Time limit (default 10)");
    AddJson(*command, options->json);
    command->callback([options, &chosen] { chosen = [options] { return Stop(*options); }; });
}

}  // namespace ominspect::ctl
