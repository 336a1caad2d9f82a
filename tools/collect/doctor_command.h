// The command doctor: what the server would make of a configuration file, and who owns its items.
#pragma once

#include <string>

#include "common/command_line.h"

namespace ominspect::collect {

struct DoctorOptions {
    std::string config;  // empty: what the server reads
    bool json = false;
};

// The exit code is about the file alone.
ExitCode RunDoctor(const DoctorOptions& options);

}  // namespace ominspect::collect
