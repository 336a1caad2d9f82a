/*
 * Bounds-checked memory and string functions (libkivo_os_bounds), in the manner of C11 Annex K,
 * without its run-time constraint handler: a violation is answered by a result code, never by an abort.
 *
 * Sizes are in bytes and include the terminating NUL of a destination. Results: 0 on success, else
 * EINVAL (22: a null pointer, or overlapping memory) or ERANGE (34: a zero size or one above PTRDIFF_MAX, or
 * the text or the bytes do not fit). All functions are pure and may be called from any thread.
 */
#ifndef KIVO_OS_BOUNDS_H
#define KIVO_OS_BOUNDS_H

#include <stdarg.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

typedef int errno_t;

/* Copies `count` bytes. On any violation the destination is left exactly as it was.
 * A count of 0 with valid pointers succeeds and copies nothing. */
errno_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count);

/* Sets `count` bytes to `value`. ERANGE when count > destMax; the destination is then left as it was. */
errno_t memset_s(void* dest, size_t destMax, int value, size_t count);

/* Copies a text with its NUL. On a violation with a usable destination, `dest` becomes the empty text. */
errno_t strcpy_s(char* dest, size_t destMax, const char* src);

/* Copies at most `count` characters of `src` and always terminates. The copied part and its NUL must
 * fit into destMax, else `dest` becomes the empty text. A null `src` is EINVAL, also with count 0. */
errno_t strncpy_s(char* dest, size_t destMax, const char* src, size_t count);

/* Formats into `dest`. Returns the number of characters written without the NUL, or -1 when an argument
 * is null, destMax is 0, the format is in error, or the text does not fit; `dest` is then the empty text. */
int sprintf_s(char* dest, size_t destMax, const char* format, ...) __attribute__((format(printf, 3, 4)));

/* Formats at most `count` characters into `dest`. A longer text is cut after `count` characters when
 * count < destMax: that is no error. Returns the number of characters kept, or -1 when an argument is
 * null, destMax is 0, the format is in error, or the text does not fit and count >= destMax; `dest` is
 * then the empty text. */
int vsnprintf_s(char* dest, size_t destMax, size_t count, const char* format, va_list args)
    __attribute__((format(printf, 4, 0)));

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
