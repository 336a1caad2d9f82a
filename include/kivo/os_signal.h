/*
 * Signal masks (libkivo_os_signal), over sigsetops(3) and pthread_sigmask(3).
 *
 * Results are 0 or an errno(3) number. Any thread; a mask belongs to the thread that sets it and is
 * inherited by the threads it creates.
 */
#ifndef KIVO_OS_SIGNAL_H
#define KIVO_OS_SIGNAL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* A set of signals, 128 bytes, owned by the caller. */
struct OsSigSet {
    uint64_t words[16];
};

/* Values for `how` of OsPthreadSigmask. */
#define OS_SIG_BLOCK 0u
#define OS_SIG_UNBLOCK 1u
#define OS_SIG_SETMASK 2u

/* Makes the set empty. EINVAL: null. */
uint32_t OsSigEmptySet(struct OsSigSet* set);

/* Adds one signal number. EINVAL: null, or no such signal. */
uint32_t OsSigAddSet(struct OsSigSet* set, uint32_t signal);

/* Changes the calling thread's mask; the former mask goes to `oldSet` unless that is null. EINVAL: unknown
 * `how`, or a null `set`. */
uint32_t OsPthreadSigmask(uint32_t how, const struct OsSigSet* set, struct OsSigSet* oldSet);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
