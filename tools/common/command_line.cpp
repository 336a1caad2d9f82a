// Exceptions end here, as a line on standard error.
#include "common/command_line.h"

#include <cstdio>
#include <exception>
#include <map>

#include <CLI/CLI.hpp>

#include "common/text.h"

namespace ominspect {
namespace {

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0    passed: every status is \"success\" (other commands: answered)\n"
    "  1    a check failed: any other status, an unknown item included; stop: no such task\n"
    "  2    wrong use; nothing was sent\n"
    "  3    the server or the message bus is not reachable, or the server refuses\n"
    "  4    no final result within the time limit\n"
    "  130  ended by Ctrl-C or SIGTERM, which stops what the command has started\n"
    "With several items, the highest of their codes.\n"
    "check: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN, as monitoring plugins have it.\n"
    "collect: 0 everything is in the package, 1 something is not, or there is no package.\n"
    "doctor: 0 nothing is wrong, 1 something is, 2 the named file cannot be read.\n"
    "\n"
    "The message bus is the one at KIVO_BUS_ADDRESS, else the system bus.";

std::string WrongWord(const std::string& word) {
    return (word.starts_with('-') ? "no such option: " : "no such command: ") + text::Escaped(word);
}

// How a command tells that it has no answer, where that is not as usual.
struct NoAnswer {
    ExitCode code;
    std::string head;
};

std::map<std::string, NoAnswer>& NoAnswers() {
    static std::map<std::string, NoAnswer> all;
    return all;
}

// That of the command on the command line; null: it tells it as usual.
const NoAnswer* NoAnswerOf(const CLI::App& app) {
    const auto commands = app.get_subcommands();
    const auto own = commands.empty() ? NoAnswers().end() : NoAnswers().find(commands.front()->get_name());
    return own != NoAnswers().end() ? &own->second : nullptr;
}

// Prints what a parse ended with, which may be the help, and gives the exit code.
int Refuse(const CLI::App& app, const CLI::Error& end) {
    if (app.exit(end) == 0) {
        return kPassed;
    }
    const NoAnswer* const own = NoAnswerOf(app);
    if (own == nullptr) {
        return kWrongUse;
    }
    (void)std::printf("%s%s\n", own->head.c_str(), end.what());
    return own->code;
}

int Run(int argc, char** argv, const std::function<void(CLI::App&, Chosen&)>& add) {
    CLI::App app("Asks the inspection server.", "ominspectctl");
    app.set_version_flag("--version", "ominspectctl " OMINSPECT_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return "ominspectctl: " + CLI::FailureMessage::simple(failed, error);
    });
    Chosen chosen;
    add(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RequiredError& error) {
        // The library only says that there is no command, also when the first word is a wrong one.
        if (argc > 1 && app.get_subcommands().empty()) {
            return Refuse(app, CLI::ParseError(WrongWord(argv[1]), CLI::ExitCodes::ExtrasError));
        }
        return Refuse(app, error);
    } catch (const CLI::ParseError& error) {
        return Refuse(app, error);
    }
    const ExitCode code = chosen();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        Complain("cannot write the output");
        const NoAnswer* const own = NoAnswerOf(app);
        return code != kPassed ? code : own != nullptr ? own->code : kFailed;
    }
    return code;
}

}  // namespace

int RunCommandLine(int argc, char** argv, const std::function<void(CLI::App&, Chosen&)>& add) {
    try {
        return Run(argc, argv, add);
    } catch (const std::exception& error) {
        Complain(error.what());
        return kUnreachable;
    }
}

void SetNoAnswer(CLI::App& command, ExitCode code, const std::string& head) {
    NoAnswers()[command.get_name()] = {code, head};
}

void AddLimit(CLI::App& command, std::chrono::seconds& limit, const std::string& text) {
    constexpr int kLongest = 86400;
    command
        .add_option_function<int>(
            "--timeout", [&limit](int seconds) { limit = std::chrono::seconds(seconds); }, text)
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kLongest));
}

void AddJson(CLI::App& command, bool& json, const std::string& text) {
    command.add_flag("--json", json, text);
}

void Complain(const std::string& text) {
    (void)std::fprintf(stderr, "ominspectctl: %s\n", text.c_str());
}

}  // namespace ominspect
