// The arguments of ominspectctl's commands.
#pragma once

#include "common/command_line.h"

namespace ominspect::ctl {

// Declares the commands, in the order of the help.
void AddCommands(CLI::App& app, Chosen& chosen);

}  // namespace ominspect::ctl
