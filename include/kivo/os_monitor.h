/*
 * Process monitor client (libkivo_os_monitor_interface). On Linux the monitor is the service manager, told
 * through its notify protocol (sd_notify(3)); without a manager both calls succeed and do nothing.
 *
 * Results are 0 or an errno(3) number. Any thread.
 */
#ifndef KIVO_OS_MONITOR_H
#define KIVO_OS_MONITOR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* 20 bytes. */
struct OsMonitorProInfo {
    char procName[16]; /*  0: NUL-terminated */
    uint32_t timeout;  /* 16: milliseconds without an activation after which the monitor restarts the process */
};

/* Tells the monitor that the process is up and how long it may be silent. EINVAL: null, a name without NUL,
 * or a time limit of 0. */
uint32_t OsMonitorProReg(const struct OsMonitorProInfo* info);

/* A sign of life. EINVAL: null or another name than the registered one. */
uint32_t OsMonitorProActivate(const char* procName);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
