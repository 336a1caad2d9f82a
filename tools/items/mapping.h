// A command's outcome as an inspection result, by the convention of the monitoring plugins.
//
//   exit status 0            "success"   the first line of its output
//   exit status 1            "warn"      likewise
//   exit status 2            "fail"      likewise
//   any other exit status    "unknown"   likewise; 3 is the convention's own word for it
//   ended by a signal        "unknown"   "ended by signal N (its name)"
//   could not be started     "unknown"   "cannot run PATH: the reason"
//   time limit               "fail"      "time limit of N s passed", as the server itself fails a run that is late
//   stopped                  "fail"      "stopped"
//
// "unknown" means that the check gave no verdict. The line is the first one of standard output, or else of standard
// error, that is not blank, up to the '|' before the performance data (perfdata.h). Control characters become blanks
// and stray bytes '?', and the line is cut to 127 bytes between characters. Without such a line: "no output, exit
// status N".
#pragma once

#include <chrono>
#include <string>

#include "items/command.h"
#include "ominspect/records.h"

namespace ominspect::items {

// `program` and `limit` are the command's own, for the texts.
tagKivoOmInspectionResult MakeResult(const std::string& item, const std::string& program, std::chrono::seconds limit,
                                     const CommandOutcome& outcome);

// Writes a status and a text into a result; a text that does not fit is cut between characters.
void SetResult(tagKivoOmInspectionResult& result, std::string_view status, std::string_view text);

}  // namespace ominspect::items
