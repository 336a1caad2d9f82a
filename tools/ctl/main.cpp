// ominspectctl: asks the inspection server, for people and scripts. This file parses the command line.
#include <cstdio>
#include <cstdlib>
#include <functional>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "kivo/os_msg.h"

namespace {

using namespace ominspect::ctl;

constexpr int kMaxSeconds = 86400;

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0  passed: the status is \"success\" (state, watch: answered)\n"
    "  1  the check failed: any other status, an unknown item included\n"
    "  2  wrong use; nothing was sent\n"
    "  3  the server or the message bus is not reachable, or refuses\n"
    "  4  no final result within the time limit, or \"running\": the owner reports later\n"
    "With several items, the highest of their codes.\n"
    "\n"
    "The message bus is the one at KIVO_BUS_ADDRESS, else the system bus.";

void AddLimit(CLI::App& command, std::chrono::seconds& limit, const char* text) {
    command
        .add_option_function<int>(
            "--timeout", [&limit](int seconds) { limit = std::chrono::seconds(seconds); }, text)
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kMaxSeconds));
}

int Main(int argc, char** argv) {
    CLI::App app("Asks the inspection server.", "ominspectctl");
    app.set_version_flag("--version", "ominspectctl " OMINSPECT_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    std::function<ExitCode()> chosen;

    RunOptions run;
    CLI::App* runCommand = app.add_subcommand("run", "Runs items, one after the other, and shows their results");
    runCommand->add_option("ITEM", run.items, "Item names, at most 31 bytes each")->required();
    runCommand
        ->add_option("--cmd", run.cmd, R"(The item's argument, at most 127 bytes; "stop" stops it, "done" resets it)")
        ->type_name("TEXT");
    AddLimit(*runCommand, run.limit, "Time limit of each item (default 310)");
    runCommand->add_flag("--json", run.json, "Print one JSON document");
    runCommand->callback([&] { chosen = [&] { return Run(run); }; });

    StateOptions state;
    CLI::App* stateCommand = app.add_subcommand("state", "Tells whether an item is idle");
    stateCommand->add_option("ITEM", state.item, "Item name, at most 31 bytes")->required();
    AddLimit(*stateCommand, state.limit, "Time limit (default 10)");
    stateCommand->add_flag("--json", state.json, "Print one JSON document");
    stateCommand->callback([&] { chosen = [&] { return State(state); }; });

    WatchOptions watch;
    CLI::App* watchCommand = app.add_subcommand("watch", "Shows runs as they begin and end, until Ctrl-C");
    watchCommand->add_option("--count", watch.count, "End after N events")->type_name("N")->check(CLI::PositiveNumber);
    AddLimit(*watchCommand, watch.limit, "End after this time; exit code 4 if --count was not reached");
    watchCommand->add_flag("--json", watch.json, "Print one JSON object per line");
    watchCommand->callback([&] { chosen = [&] { return Watch(watch); }; });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kPassed : kWrongUse;
    }
    OsMsgSetLogLevel(0);  // the commands tell by themselves what the message layer would
    const ExitCode code = chosen();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        (void)std::fputs("ominspectctl: cannot write the output\n", stderr);
        return code == kPassed ? kFailed : code;
    }
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "ominspectctl: %s\n", error.what());
        return kUnreachable;
    }
}
