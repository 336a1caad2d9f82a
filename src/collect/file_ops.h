// File-system operations under the copy functions. Failures are logged; results are 0 for success.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "kivo/os_file.h"

struct CloseDir {
    void operator()(OsDir* dir) const { (void)OsCloseDir(dir); }
};

/// An open directory; null when it cannot be opened.
using DirHandle = std::unique_ptr<OsDir, CloseDir>;

/// Makes a directory and every missing parent, each with mode 0770.
int InspectMkdirMulti(const char* path);

/// Removes a file, or a directory with all that is in it; links are followed.
int InspectRemovePath(const char* path);

/// Gives `dst` the time stamps of `src` through the system's touch(1). 1 when a path holds a dangerous character or the
/// command fails; 0 also when there is no `dst`.
int InspectChangeFileTime(const char* src, const char* dst);

/// Whether a path is a directory, links followed; false when its status cannot be read.
bool InspectIsDir(const char* path);

/// A path of at most 255 bytes.
using PathBuffer = std::array<char, 256>;

/// "directory/name"; false when it does not fit.
bool JoinPath(PathBuffer& out, const char* directory, const char* name);

/// Whether a directory entry is the directory itself or its parent.
bool IsDotEntry(const char* name);
