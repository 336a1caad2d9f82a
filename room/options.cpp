// Options between the programs are not in the help.
#include "options.h"

#include <cstdio>

#include <CLI/CLI.hpp>

#include "ominspect/journal.h"

namespace room {
namespace {

constexpr const char* kFooter =
    "Without --check, --once and --describe it serves the items on the message bus at KIVO_BUS_ADDRESS, else on the\n"
    "system bus, until it is told to end. An item is looked at when it is asked for, by a process of its own with a\n"
    "limit, which reads the room's file anew; in between nothing runs.\n"
    "\n"
    "Exit codes:\n"
    "  0    ended as asked; --once: every status is \"success\"\n"
    "  1    --once: any other status\n"
    "  2    wrong use, or a mistake in the file\n"
    "  3    the message bus is not reachable, the process name is taken, or this user may not own items\n"
    "  130  --once: ended by Ctrl-C or SIGTERM, which ends what is under way";

}  // namespace

std::optional<int> ReadOptions(int argc, char** argv, Options& options) {
    CLI::App app("Answers the inspection server's built-in items with what this computer knows of its room.", kProgram);
    app.set_version_flag("--version", std::string(kProgram) + " " OMINSPECT_VERSION);
    app.footer(kFooter);
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return std::string(kProgram) + ": " + CLI::FailureMessage::simple(failed, error);
    });
    app.add_option("--config", options.config, "What is expected in this room (" OMINSPECT_ROOM_FILE ")");
    auto* check = app.add_option("--check", options.check,
                                 "Check a file of expectations, and the credentials that it names, and end");
    auto* once = app.add_option("--once", options.once, "Look at these items, or at all, beside each other, and end")
                     ->expected(0, -1);
    auto* describe = app.add_flag("--describe", options.describe, "Print what each item looks at, and end");
    check->excludes(once, describe);
    once->excludes(describe);
    app.add_flag("--list", options.list)->group("");
    app.add_option("--answer", options.answer)->group("");
    app.add_option("--root", options.root)->group("");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kPassed : kWrongUse;
    }
    options.isOnce = once->count() > 0;
    std::erase(options.once, "");  // stands for no item named
    return std::nullopt;
}

void Complain(const std::string& text) {
    (void)std::fprintf(stderr, "%s%s: %s\n", OmJournalPrefix(OM_JOURNAL_ERROR), kProgram, text.c_str());
}

}  // namespace room
