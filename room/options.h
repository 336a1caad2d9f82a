// The command line, which two programs share: ominspect-room, which serves, and ominspect-room-check, which looks and
// needs the libraries for that. To the user they are one.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace room {

constexpr const char* kProgram = "ominspect-room";

enum ExitCode : int {
    kPassed = 0,
    kFailed = 1,        // a status other than "success"; or the output cannot be written
    kWrongUse = 2,      // wrong arguments, or a mistake in the room's file
    kUnreachable = 3,   // no message bus, or another program is missing
    kInterrupted = 130  // ended by Ctrl-C (128 + SIGINT)
};

struct Options {
    std::string config;  // empty: the one in /etc, if it is there
    std::string check;   // a file that is to be checked
    std::vector<std::string> once;
    bool isOnce = false;
    bool describe = false;
    // Between the two programs.
    bool list = false;
    std::string answer;
    std::string root;
};

// Fills in the options; returns an exit code when the program is to end at once.
std::optional<int> ReadOptions(int argc, char** argv, Options& options);

// One line on standard error.
void Complain(const std::string& text);

}  // namespace room
