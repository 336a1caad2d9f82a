// The log lines of the server, in programs that have it on the fake platform: the journal would keep each of them.
//
// Such a program is linked with --wrap=KivoOmLogModuleLogRecord.
#pragma once

#include <cstddef>
#include <string>

namespace bench {

/// From now on lines go to the log client of the Linux platform, which writes them into this folder; without this call
/// they are formatted and dropped.
void OpenServerLog(const std::string& folder);

/// Whether lines are written; they are once the log is open.
void WriteServerLog(bool write);

/// How many lines there were, written or not.
std::size_t ServerLogLines();

}  // namespace bench
