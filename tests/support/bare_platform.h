// As much of the platform as the result table and the background jobs need, for programs whose threads really run side
// by side: threads and locks are those of the Linux platform; a scripted owner answers every run, seconds pass as the
// program says, and log lines go to the program.
#pragma once

#include <string_view>

#include "kivo/os_msg.h"
#include "ominspect/records.h"

namespace support::bare {

// Each program defines these. Any thread calls them.

/// Instead of a second's sleep.
void Second();

/// What the owner of an item answers to a run.
tagKivoOmInspectionResult Answer(std::string_view item);

/// An event, under the lock of the result table.
void Event(const OsMsgEvent& event);

/// A log line.
void Log(const char* text);

}  // namespace support::bare
