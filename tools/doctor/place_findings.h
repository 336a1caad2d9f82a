// The machine's side: the configuration file, the folders of the server, and the clock.
#pragma once

#include <ctime>
#include <string>
#include <vector>

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

// What helps where the bus does not have the policy. `read`: the folders that the bus reads, the administrator's last;
// `installed`: where the policy is after an installation.
std::string PolicyAdvice(const std::vector<std::string>& read, const std::string& installed);

// Whether the kernel takes the clock for synchronised.
bool IsClockSynchronised();

}  // namespace ominspect::doctor
