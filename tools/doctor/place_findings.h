// The machine's side: the configuration file, the folders of the server, and the clock.
#pragma once

#include <ctime>
#include <string>

#include "doctor/diagnosis.h"
#include "doctor/finding.h"

namespace ominspect::doctor {

Finding JudgeConfiguration(const std::string& path, const Diagnosis& diagnosis, bool isAsSchemaHasIt);

// `subject`: what the folder is called; `user`: who writes into it, empty when that is not known; `leastFree`: in
// bytes.
Finding JudgeFolder(const std::string& subject, const std::string& path, const std::string& user,
                    unsigned long long leastFree);

// `isSynchronised`: as the kernel has it (adjtimex(2)).
Finding JudgeClock(std::time_t now, bool isSynchronised);

// Whether the kernel takes the clock for synchronised.
bool IsClockSynchronised();

}  // namespace ominspect::doctor
