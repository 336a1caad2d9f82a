// The commands of ominspectctl. Each adds its part of the command line to the program's.
#pragma once

#include "common/command_line.h"

namespace ominspect::ctl {

void AddList(CLI::App& app, Chosen& chosen);
void AddRun(CLI::App& app, Chosen& chosen);
void AddCheck(CLI::App& app, Chosen& chosen);
void AddGroup(CLI::App& app, Chosen& chosen);
void AddStop(CLI::App& app, Chosen& chosen);
void AddReset(CLI::App& app, Chosen& chosen);
void AddState(CLI::App& app, Chosen& chosen);
void AddWait(CLI::App& app, Chosen& chosen);
void AddHistory(CLI::App& app, Chosen& chosen);
void AddWatch(CLI::App& app, Chosen& chosen);

// ---- the commands that another program carries out ----

// Names them in the help.
void AddCollectProgram(CLI::App& app);

// Whether the command is one of them.
bool IsForCollectProgram(int argc, char** argv);

// Puts that program in the place of this one, with the same arguments. Returns only when it cannot be run.
ExitCode RunCollectProgram(char** argv);

}  // namespace ominspect::ctl
