// The fake platform's journal as lines of text, so that a test can compare what happened, in order, with literals.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "fake/fake.h"

namespace support {

/// One entry as a line:
///   "1 ResultMgr 13: text"              a log line with level, unit and module ("-" for none)
///   "event 8: name|status|text"         a broadcast with a result record
///   "event 9: 0"                        a broadcast with a number
///   "send 0 to proc:task: name|status|text"
///   "ask 4 of proc:task"                a synchronous send
///   "reply 0: name|status|text", "reply 7: 1", "reply 4: empty"
///   "OsTmrManagerInit(1, 0, 0)"         any other call
/// Payloads of other sizes than 4 and 192 show as "<n bytes>".
std::string Describe(const kivo::fake::Entry& entry);

using Lines = std::vector<std::string>;

/// All that happened.
Lines Steps();

/// Only what is of one of these kinds.
Lines Steps(std::initializer_list<kivo::fake::Kind> kinds);

/// Only the log lines.
Lines LogLines();

/// Only the broadcasts.
Lines Events();

}  // namespace support
