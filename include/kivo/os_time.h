/*
 * Platform clock (libkivo_os_time).
 */
#ifndef KIVO_OS_TIME_H
#define KIVO_OS_TIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* System time in milliseconds since 1970-01-01 00:00 UTC (clock_gettime(2), CLOCK_REALTIME). It follows
 * corrections of the system clock. Any thread. */
uint64_t OsGetSystemTime(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
