// The whole command line, but the options of collect and doctor, which their own program declares.
#include "arguments.h"

#include <cstddef>
#include <memory>

#include <CLI/CLI.hpp>

#include "commands.h"

namespace ominspect::ctl {
namespace {

// Lets the command, when it is the one that was given, be what is run.
template <typename Options>
void Offer(CLI::App& command, Chosen& chosen, const std::shared_ptr<Options>& options,
           ExitCode (*run)(const Options&)) {
    command.callback([options, run, &chosen] { chosen = [options, run] { return run(*options); }; });
}

void AddList(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<ListOptions>();
    CLI::App* command = app.add_subcommand(
        "list", "Lists the items, with their owners and last results: those that your commands saw, and the gateway's");
    AddLimit(*command, options->limit, "Time limit (default 10)");
    CLI::Option* names = command->add_flag("--names", options->names, "Print the names only, one in each line");
    AddJson(*command, options->json);
    names->excludes("--json");
    Offer(*command, chosen, options, List);
}

void AddRun(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<RunOptions>();
    CLI::App* command = app.add_subcommand("run", "Runs items, one after the other, and shows their results");
    command->add_option("ITEM", options->items, "Item names, at most 31 bytes each")->required();
    command
        ->add_option("--cmd", options->cmd,
                     R"(The item's argument, at most 127 bytes; "stop" stops it, "done" resets it)")
        ->type_name("TEXT");
    command->add_flag("--sync", options->sync,
                      "Run synchronously: the server serves nobody else until the item's owner has answered");
    AddLimit(*command, options->limit, "Time limit of each item, which is stopped then (default 310)");
    AddJson(*command, options->json);
    Offer(*command, chosen, options, Run);
}

void AddCheck(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* command = app.add_subcommand(
        "check", "Runs an item and answers as a plugin of a monitoring system: one line, exit code 0 to 3");
    command->add_option("ITEM", options->item, "Item name, at most 31 bytes")->required();
    command->add_option("--cmd", options->cmd, "The item's argument, at most 127 bytes")->type_name("TEXT");
    AddLimit(*command, options->limit, "Time limit, after which the item is stopped (default 10)");
    Offer(*command, chosen, options, Check);
    SetNoAnswer(*command, kCheckUnknown, "UNKNOWN - ");
}

void AddGroup(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<GroupOptions>();
    CLI::App* command = app.add_subcommand("group", "Runs items as a group, and shows how they get on");
    command->add_option("ITEM", options->items, "Item names, at most 31 bytes each");
    command->add_flag("--all", options->all, "All configured items");
    command->add_option("--cmd", options->cmd, "The items' argument, at most 127 bytes")->type_name("TEXT");
    command->add_flag("--wait", options->waitForTurn, "Wait while the server runs another group of this name");
    AddLimit(*command, options->limit, "Time limit of the whole run (default 3600)");
    AddJson(*command, options->json);
    Offer(*command, chosen, options, Group);
}

void AddStop(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<StopOptions>();
    CLI::App* command = app.add_subcommand("stop", "Stops a running group");
    command->add_option("TASKID", options->taskId, "The group's task id, as 'ominspectctl group' shows it")->required();
    AddLimit(*command, options->limit, "Time limit (default 10)");
    AddJson(*command, options->json);
    Offer(*command, chosen, options, Stop);
}

// reset and state
void AddItemCommand(CLI::App& app, Chosen& chosen, const char* name, const char* text,
                    ExitCode (*run)(const ItemOptions&)) {
    const auto options = std::make_shared<ItemOptions>();
    CLI::App* command = app.add_subcommand(name, text);
    command->add_option("ITEM", options->item, "Item name, at most 31 bytes")->required();
    AddLimit(*command, options->limit, "Time limit (default 10)");
    AddJson(*command, options->json);
    Offer(*command, chosen, options, run);
}

void AddWait(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<WaitOptions>();
    CLI::App* command = app.add_subcommand("wait", "Waits until the server is there, and an owner of each item");
    command->add_option("ITEM", options->items, "Item names, at most 31 bytes each");
    AddLimit(*command, options->limit, "Time limit (default 60)");
    AddJson(*command, options->json);
    Offer(*command, chosen, options, Wait);
}

void AddWatch(CLI::App& app, Chosen& chosen) {
    constexpr int kMostEvents = 1000000000;
    const auto options = std::make_shared<WatchOptions>();
    CLI::App* command = app.add_subcommand("watch", "Shows runs as they begin and end, until Ctrl-C");
    command->add_option("--count", options->count, "End after N events")
        ->type_name("N")
        ->check(CLI::Range(1, kMostEvents));
    AddLimit(*command, options->limit, "End after this time; exit code 4 if --count was not reached");
    AddJson(*command, options->json, "Print one JSON object per line");
    Offer(*command, chosen, options, Watch);
}

void AddHistory(CLI::App& app, Chosen& chosen) {
    constexpr std::size_t kMostRows = 100000;
    const auto options = std::make_shared<HistoryOptions>();
    CLI::App* command = app.add_subcommand("history", "Shows what ominspect-gateway has kept, newest first");
    command->add_option("ITEM", options->item, "One item's runs only, and the gaps");
    command->add_option("--since", options->since, "From this time on: an age such as 2h or 3d, or a date and time")
        ->type_name("TIME");
    command->add_option("--until", options->until, "Up to this time")->type_name("TIME");
    command->add_option("--status", options->status, "Only results with this status")->type_name("STATUS");
    command->add_option("--limit", options->limit, "The most rows (default 50)")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{1}, kMostRows));
    command->add_option("--file", options->file, "Another history than the gateway's")->type_name("FILE");
    AddJson(*command, options->json);
    Offer(*command, chosen, options, ShowHistory);
}

}  // namespace

void AddCommands(CLI::App& app, Chosen& chosen) {
    AddList(app, chosen);
    AddRun(app, chosen);
    AddCheck(app, chosen);
    AddGroup(app, chosen);
    AddStop(app, chosen);
    AddItemCommand(app, chosen, "reset", "Sets an item back to idle; whoever waits for it gets that", Reset);
    AddItemCommand(app, chosen, "state", "Tells whether an item is idle", ShowState);
    AddWait(app, chosen);
    AddWatch(app, chosen);
    AddHistory(app, chosen);
    // For the help only: main hands them to the program that carries them out.
    app.add_subcommand(kCollectCommand, kCollectText);
    app.add_subcommand(kDoctorCommand, kDoctorText);
}

}  // namespace ominspect::ctl
