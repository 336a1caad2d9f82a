/*
 * Timers (libkivo_os_timer). One manager thread per process runs the callbacks of all timers, one after
 * the other; it sleeps until the next timer is due.
 *
 * Results are 0 or an errno(3) number. Every function may be called from any thread, callbacks included.
 */
#ifndef KIVO_OS_TIMER_H
#define KIVO_OS_TIMER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Called on the manager thread with the record's userData. Its result is not used. A callback that takes
 * long delays the others. */
typedef uint32_t (*OsTimerCallback)(uint64_t userData);

/* What to run and when; copied by OsTmrCreate. 72 bytes. */
struct OsTimerParam {
    uint32_t mode;            /*  0: 1 = callback timer, the only mode */
    char reserved[44];        /*  4: zero */
    uint64_t userData;        /* 48: handed to the callback */
    uint32_t period;          /* 56: seconds, at least 1 */
    uint32_t repeat;          /* 60: 1 = until deleted, 0 = once */
    OsTimerCallback callback; /* 64 */
};

/* Names a live timer; 0 is never a timer. */
typedef uint32_t OsTimerId;

/* Starts the manager. `tick` is the wished resolution in units of 10 ms; this platform is exact and only
 * refuses 0 (EINVAL). `priority` and `flags` must be 0 (EINVAL). Starting it again is harmless. */
uint32_t OsTmrManagerInit(uint32_t tick, uint32_t priority, uint32_t flags);

/* Creates and starts a timer: the first call of the callback comes one period from now. EINVAL: null or
 * a record as not described above; EPERM: the manager does not run; ENOMEM; EAGAIN. */
uint32_t OsTmrCreate(const struct OsTimerParam* param, OsTimerId* id);

/* Deletes a timer. No call of its callback begins afterwards; one that has begun on the manager thread may
 * still be running. ENOENT: no such timer (a one-shot timer is gone once its callback has been called). */
uint32_t OsTmrDelete(OsTimerId id);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
