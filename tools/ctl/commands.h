// The commands of ominspectctl. Each adds its part of the command line to the program's; what was chosen prints its
// answer and returns the exit code.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <CLI/CLI.hpp>

#include "exit_code.h"

namespace ominspect::ctl {

// What the command line asks for; empty until it was parsed.
using Chosen = std::function<ExitCode()>;

void AddList(CLI::App& app, Chosen& chosen);
void AddCollect(CLI::App& app, Chosen& chosen);
void AddDoctor(CLI::App& app, Chosen& chosen);
void AddRun(CLI::App& app, Chosen& chosen);
void AddGroup(CLI::App& app, Chosen& chosen);
void AddStop(CLI::App& app, Chosen& chosen);
void AddReset(CLI::App& app, Chosen& chosen);
void AddState(CLI::App& app, Chosen& chosen);
void AddWatch(CLI::App& app, Chosen& chosen);

// ---- what several commands have ----

// --timeout SECONDS, from one second to a day.
void AddLimit(CLI::App& command, std::chrono::seconds& limit, const std::string& text);

// --json
void AddJson(CLI::App& command, bool& json, const std::string& text = "Print one JSON document");

}  // namespace ominspect::ctl
