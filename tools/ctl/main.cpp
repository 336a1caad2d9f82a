// ominspectctl: asks the inspection server, for people and scripts. This file parses the command line.
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "kivo/os_msg.h"

namespace {

using namespace ominspect::ctl;

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0    passed: every status is \"success\" (other commands: answered)\n"
    "  1    a check failed: any other status, an unknown item included; stop: no such task\n"
    "  2    wrong use; nothing was sent\n"
    "  3    the server or the message bus is not reachable, or the server refuses\n"
    "  4    no final result within the time limit\n"
    "  130  a group was ended by Ctrl-C or SIGTERM, and stopped in the server\n"
    "With several items, the highest of their codes.\n"
    "collect: 0 everything is in the package, 1 something is not, or there is no package.\n"
    "doctor: 0 nothing falls back, 1 something does, 2 the file cannot be read.\n"
    "\n"
    "The message bus is the one at KIVO_BUS_ADDRESS, else the system bus.";

int Main(int argc, char** argv) {
    CLI::App app("Asks the inspection server.", "ominspectctl");
    app.set_version_flag("--version", "ominspectctl " OMINSPECT_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    Chosen chosen;
    AddList(app, chosen);
    AddRun(app, chosen);
    AddGroup(app, chosen);
    AddStop(app, chosen);
    AddReset(app, chosen);
    AddState(app, chosen);
    AddWatch(app, chosen);
    AddCollect(app, chosen);
    AddDoctor(app, chosen);

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
