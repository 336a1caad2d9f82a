// The commands of ominspectctl: what their arguments tell them, and what carries them out. Each prints its answer and
// gives the exit code.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/command_line.h"

namespace ominspect::ctl {

struct ListOptions {
    std::chrono::seconds limit{10};
    bool names = false;
    bool json = false;
};
ExitCode List(const ListOptions& options);

struct RunOptions {
    std::vector<std::string> items;
    std::string cmd;
    std::chrono::seconds limit{310};  // the server gives an item's owner 300 s
    bool sync = false;
    bool json = false;
};
ExitCode Run(const RunOptions& options);

struct CheckOptions {
    std::string item;
    std::string cmd;
    std::chrono::seconds limit{10};
};
ExitCode Check(const CheckOptions& options);
// What nobody could ask, and wrong use: UNKNOWN, as monitoring plugins have it.
constexpr auto kCheckUnknown = static_cast<ExitCode>(3);

struct GroupOptions {
    std::vector<std::string> items;
    bool all = false;
    std::string cmd;
    std::chrono::seconds limit{3600};
    bool waitForTurn = false;
    bool json = false;
};
ExitCode Group(const GroupOptions& options);

struct StopOptions {
    std::uint32_t taskId = 0;
    std::chrono::seconds limit{10};
    bool json = false;
};
ExitCode Stop(const StopOptions& options);

struct ItemOptions {
    std::string item;
    std::chrono::seconds limit{10};
    bool json = false;
};
ExitCode Reset(const ItemOptions& options);
ExitCode ShowState(const ItemOptions& options);

struct WaitOptions {
    std::vector<std::string> items;
    std::chrono::seconds limit{60};
    bool json = false;
};
ExitCode Wait(const WaitOptions& options);

struct WatchOptions {
    std::uint64_t count = 0;        // events after which to end; 0: none
    std::chrono::seconds limit{0};  // 0: none
    bool json = false;
};
ExitCode Watch(const WatchOptions& options);

struct HistoryOptions {
    std::string item;
    std::string status;
    std::string since;
    std::string until;
    std::size_t limit = 50;
    std::string file;
    bool json = false;
};
ExitCode ShowHistory(const HistoryOptions& options);

// ---- the commands that another program carries out ----

// Whether the command is one of them.
bool IsForCollectProgram(int argc, char** argv);

// Puts that program in the place of this one, with the same arguments. Returns only when it cannot be run.
ExitCode RunCollectProgram(char** argv);

}  // namespace ominspect::ctl
