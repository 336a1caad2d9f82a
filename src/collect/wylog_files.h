// The files of the system log and of its backup: which are new, which are too old, and how they are copied.
#pragma once

#include <string>
#include <vector>

/// Names in `dir` that are rotated application logs, or all others, "." and ".." included; in directory order.
std::vector<std::string> ListWylogFiles(const std::string& dir, bool wantAppLogs);

/// Sorts names by the time their files in `dir` were last written, oldest first.
void SortByTime(std::vector<std::string>& names, const std::string& dir);

/// Copies rotated application logs that are new or changed, oldest first, and keeps `backups` (the names in `dst`,
/// oldest first, those that another process put there included) at 150 at most. A run that is not full waits for three
/// new files and leaves the two newest out.
void BackupAppLogs(const std::string& src, const std::string& dst, bool fullRun, std::vector<std::string>& backups);

/// Replaces all other files of `dst` by those of `src`.
void CopyOtherWylogFiles(const std::string& src, const std::string& dst);
