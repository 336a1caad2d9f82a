/*
 * Timers (libkivo_os_timer). A manager calls the callbacks on threads of its own, of which it has no more than
 * callbacks run at the same time, and two. They sleep until the next timer is due.
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

/* Called on a thread of the manager with the record's userData. Its result is not used. A callback that takes long does
 * not hold up those of other timers, so they may run at the same time; two calls for the same timer never do. */
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

/* Creates and starts a timer: the first call of the callback comes one period from now. The calls that a repeating
 * timer misses while its callback runs are left out. EINVAL: null, or a record other than described above; EPERM: the
 * manager does not run; ENOMEM. */
uint32_t OsTmrCreate(const struct OsTimerParam* param, OsTimerId* id);

/* Deletes a timer. No call of its callback begins afterwards. This function does not wait: a call that has begun may
 * still be running when it returns, so what the callback uses must outlive that call. A callback may delete its own
 * timer. ENOENT: no such timer (a one-shot timer is gone once its callback has returned). */
uint32_t OsTmrDelete(OsTimerId id);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
