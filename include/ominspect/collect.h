// Log collection: what libominspect.so offers to the component that drives collections.
//
// Sequence, for each entry of InspectConfigMgr::GetLogCollectList() (config.h says how a driver's process loads it):
//   1. fill a CollectConfig: startTimer and running true, timeout the entry's;
//   2. call the entry's copy function with the entry's two paths and that CollectConfig;
//   3. when it returns, all was copied or the time limit ended it; `running` is then false after a
//      directory copy that could begin.
// With `running` false no directory entry is copied; with `startTimer` false there is no time limit.
//
// Ownership: the paths and the CollectConfig stay the caller's and must live until the call returns; it keeps nothing.
//
// Time: `timeout` is in seconds, more than 60 count as 60, and 0 ends a directory copy before its first entry. The
// limit is looked at between directory entries: a large file is copied to its end first. A directory copy waits for its
// timer thread, which sleeps in whole seconds, so it may return up to a second after its last file. InspectCopyFile has
// no limit, nor has InspectCopyWylogsFile where the backup is switched on.
//
// Threads: copying runs on the caller's thread, the timer on one of its own that is joined before the call returns. Any
// other thread may clear `running` meanwhile: the copy then ends at the next directory entry, as after the time limit.
// Collections of different destinations may run at the same time; two into the same destination are not guarded
// against. Each copied file starts touch(1) through system(3), which discards the process's SIGINT and SIGQUIT while it
// runs: a driver that wants to notice them lets the copy functions run in a process of their own.
//
// Nothing is thrown and nothing is returned: failures are lines of the operations-log client (unit "InspectFile",
// module 15), on standard error where the process has opened no log. A line that begins with "collection stopped by
// timer," tells a copy that was ended early from one that came to its end. Sources are read and destinations written
// with the rights of the calling process. Links at the source are followed.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// The state of one collection; owned by the caller, not used again while the collection is under way.
struct CollectConfig {
    std::atomic<bool> startTimer{false};  // the first directory copy that sees it set clears it and starts the timer
    std::atomic<bool> running{false};     // the copy goes on while it is set
    uint32_t timeout = 0;                 // seconds; more than 60 counts as 60
};

/// Copies a source path to a destination path.
using InspectCopyFunction = void (*)(const char* src, const char* dst, CollectConfig& config);

/// One configured entry; both paths are NUL-terminated.
struct InspectOneDiagFile {
    char srcPath[80];  // file or directory to collect
    char dstPath[80];  // where the copy goes
    uint32_t timeout;  // seconds
    InspectCopyFunction copy;
};

/// Replaces the destination directory by a copy of the source directory: what stood there is deleted first, at every
/// level. Stops at the next entry once the time limit has passed. Joined paths of more than 255 bytes end their
/// directory.
void InspectCopyDirFile(const char* src, const char* dst, CollectConfig& config);

/// Copies one file over the destination and makes the destination's missing parents. Without a time limit.
void InspectCopyFile(const char* src, const char* dst, CollectConfig& config);

/// Copies the system log: as InspectCopyDirFile, or, where the backup is switched on, as a full backup run without a
/// time limit.
void InspectCopyWylogsFile(const char* src, const char* dst, CollectConfig& config);

/// Copies one path, file or directory, and gives a file the source's time stamps.
void InspectDealCopy(const char* src, const char* dst, CollectConfig& config);

/// Body of the timer thread: clears `running` when the time limit has passed, looking once a second.
void CollectTimer(CollectConfig& config);

namespace SafeTool {

/// A path as it may stand in a log: "****" and its last 8 bytes, "****" alone for one of at most 8 bytes.
std::string TransferSafePath(const std::string& path);

/// Whether a path holds one of | ; & $ > < ` ! or a line feed.
bool IsContainDangerChar(const std::string& path);

}  // namespace SafeTool

extern "C" {

/// Hooks that a product replaces by a definition of its own in another loaded module.
int InspectCollectVendorLog();    // collects more; the default does nothing and returns 0
bool InspectIsNeedBackupWylog();  // whether the system log is backed up; the default returns false
}

#pragma GCC visibility pop
