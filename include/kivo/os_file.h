/*
 * Files (libkivo_os_file).
 *
 * Results are 0 or an errno(3) number unless a function says otherwise; a null path is EINVAL. Paths are byte
 * strings of the system's encoding. Any thread; one directory handle belongs to one thread at a time.
 */
#ifndef KIVO_OS_FILE_H
#define KIVO_OS_FILE_H

#include <dirent.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Status of a file, links followed (stat(2)). Times are nanoseconds since 1970-01-01 00:00 UTC. */
struct OsFileStat {
    uint64_t size;      /* bytes */
    int64_t modifyTime; /* when the contents were last written: the time by which files are ordered */
    int64_t detectTime; /* equal in a copy that was given its source's time stamps; differs once the source changed */
    uint32_t mode;      /* type and permissions, as st_mode */
    uint32_t linkCount;
};

/* An open directory, owned by the caller until OsCloseDir. */
typedef struct OsDir OsDir;

/* access(2); mode 0 asks whether the path exists (a dangling link does not). */
uint32_t OsAccess(const char* path, int mode);

/* Opens a directory; null when it cannot be opened (errno tells why). */
OsDir* OsOpenDir(const char* path);

/* The next entry in the directory's own order, "." and ".." included; null at the end. The entry is valid
 * until the next call on the same handle. */
struct dirent* OsReadDir(OsDir* dir);

/* Closes and frees the handle. EINVAL: null. */
uint32_t OsCloseDir(OsDir* dir);

/* Copies the contents and the permission bits of a regular file. An existing regular file at `dst` is replaced
 * in place; its blocks are shared with the source where the file system can (copy_file_range(2)). Links are
 * followed at `src` and refused at `dst`. Anything but a regular file, at either end, is refused with EINVAL and
 * never opened blocking; a file copied onto itself is EINVAL too. A source that grows meanwhile is copied up to
 * the size it had. On failure a file that this call created is removed. */
uint32_t OsCopyFile(const char* src, const char* dst);

/* Fills `stat`; EINVAL: null. */
uint32_t OsGetStat(const char* path, struct OsFileStat* stat);

/* Creates one directory with exactly `mode` (the process's umask does not cut it). */
uint32_t OsMkDir(const char* path, uint32_t mode);

/* Removes one file or link. */
uint32_t OsRemove(const char* path);

/* Removes one empty directory. */
uint32_t OsRmDir(const char* path);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
