// The command doctor: a look at the whole installation or, with --config, at one configuration file.
#pragma once

#include <string>

#include "common/command_line.h"

namespace ominspect::doctor {

struct DoctorOptions {
    std::string config;  // empty: the whole installation
    bool json = false;
};

// Says on standard output what was found.
ExitCode RunDoctor(const DoctorOptions& options);

}  // namespace ominspect::doctor
