// The choices of a run as a file, and how to make them fewer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runner.h"

namespace sim {

using Schedule = std::vector<uint32_t>;

/// False when the file cannot be read or is none.
bool ReadSchedule(const std::string& path, Schedule& schedule);
bool WriteSchedule(const std::string& path, const Schedule& schedule, const std::string& comment);

Schedule ScheduleOf(const Outcome& outcome);
size_t CountChoices(const Schedule& schedule);  // that are not the tamest

/// Makes a schedule that goes wrong shorter and tamer, as long as it goes wrong in the same way, with at most that many
/// runs.
Schedule Minimise(Runner& runner, Schedule schedule, size_t runs);

}  // namespace sim
