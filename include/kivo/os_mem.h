/*
 * Accounted memory (libkivo_os_mem): allocations are counted per calling unit, so that a leak on a running device can
 * be traced to its unit.
 *
 * Any thread may call.
 */
#ifndef KIVO_OS_MEM_H
#define KIVO_OS_MEM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* What one unit holds now. */
struct OsMemUsage {
    uint64_t bytes;  /* as asked for, without the library's own headers */
    uint64_t blocks; /* live allocations, those of size 0 included */
};

/* Allocates `size` bytes, each set to `fill`, aligned as malloc(3) aligns, and counts them for `unit` (a
 * short text, copied on first use; a null one counts for "unknown"). A size of 0 gives a block of length 0
 * that must be freed all the same. Returns null when there is no memory. The caller owns the block. */
void* OsMemMallocSetCharMon(size_t size, int fill, const char* unit, uint32_t line);

/* Frees a block of OsMemMallocSetCharMon and takes it off its unit's count. Null is ignored. */
void OSMemTypeFreeMon(void* block, const char* unit, uint32_t line);

/* Reads a unit's count; zeros for a unit that never allocated. */
struct OsMemUsage OsMemGetUsage(const char* unit);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
