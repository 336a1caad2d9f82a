// What the server does under which of its locks.
//
// A program that uses it is linked so that these calls of the server pass through here first (see inspect_lock_test in
// tests/unit/src/CMakeLists.txt): pthread_mutex_lock and _unlock, OsRwLock*, OsMsgSynSend, OsMsgBroadcastEvent,
// OsPthreadCreate, OsTmrCreate, OsTmrDelete and OsCopyFile.
#pragma once

#include <string>
#include <vector>

namespace support {

// clang-format off
/// The steps of all threads since it was made, in order. A line names the step and what its thread held then:
///   "table", "jobs", "another"                      a mutex is taken: the result table's, the task table's, any other
///   "registry made for 0", "registry destroyed"     with the attribute that was passed
///   "registry for reading", "registry for writing"
///   "ask 4", "event 8", "thread", "timer", "timer off", "copy"
///   "event 8 under table"                           a step while locks are held, in the order in which they were taken
/// What the fake platform does with locks of its own does not show.
// clang-format on
class LockTrace {
public:
    LockTrace();
    ~LockTrace();
    LockTrace(const LockTrace&) = delete;
    LockTrace& operator=(const LockTrace&) = delete;

    std::vector<std::string> Lines() const;

    /// How many lines are, or begin with, or end with a text.
    long Count(const std::string& line) const;
    long CountFrom(const std::string& start) const;
    long CountUnder(const std::string& lock) const;
};

}  // namespace support
