// The command doctor: a look at the whole installation or, with --config, at one configuration file.
#pragma once

#include "common/command_line.h"

namespace ominspect::doctor {

void AddDoctor(CLI::App& app, Chosen& chosen);

}  // namespace ominspect::doctor
