// The command line of ominspectctl. Two programs carry out its commands; to the user they are one, with the same name,
// help and exit codes.
#pragma once

#include <chrono>
#include <functional>
#include <string>

// The library takes seconds to compile: only files that declare options include it.
namespace CLI {
class App;
}

namespace ominspect {

// Stable, for scripts.
enum ExitCode : int {
    kPassed = 0,
    kFailed = 1,        // a check failed: a status other than "success"; or the output cannot be written
    kWrongUse = 2,      // wrong arguments; nothing was sent
    kUnreachable = 3,   // no usable answer: the server or the bus is not there, or refuses
    kTimeLimit = 4,     // no final result within the time limit
    kInterrupted = 130  // cancelled by Ctrl-C (128 + SIGINT), as the shells have it
};

// The chosen command; empty until the command line was parsed. It prints its answer and returns the exit code.
using Chosen = std::function<ExitCode()>;

// The commands of the program in libexec, as the help names them.
constexpr const char* kCollectCommand = "collect";
constexpr const char* kCollectText = "Gathers the device's logs into one package, without the server";
constexpr const char* kDoctorCommand = "doctor";
constexpr const char* kDoctorText =
    "Looks at bus, rights, server, owners, configuration, folders and clock, and says what to do";

// Lets `add` declare the commands, parses the arguments, runs what they chose, and gives the exit code.
int RunCommandLine(int argc, char** argv, const std::function<void(CLI::App& app, Chosen& chosen)>& add);

// For a command with exit codes of its own: `code` stands for wrong arguments and for an answer that cannot be written.
// Wrong arguments are told on standard output too, in one line that begins with `head`.
void SetNoAnswer(CLI::App& command, ExitCode code, const std::string& head);

// --timeout SECONDS, from one second to a day.
void AddLimit(CLI::App& command, std::chrono::seconds& limit, const std::string& text);

// --json
void AddJson(CLI::App& command, bool& json, const std::string& text = "Print one JSON document");

// One line beside the answer, on standard error, with the program's name before it.
void Complain(const std::string& text);

}  // namespace ominspect
