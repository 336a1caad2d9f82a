/*
 * Threads (libkivo_os_thread): a thin layer over pthreads(7).
 *
 * Results are 0 or an errno(3) number. Any thread may call.
 */
#ifndef KIVO_OS_THREAD_H
#define KIVO_OS_THREAD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Names a thread until it is detached. Opaque; there is no null value. */
typedef unsigned long OsThread;

typedef void* (*OsThreadEntry)(void* argument);

/* Starts a thread that runs entry(argument). `attributes` is a const pthread_attr_t* or null for the
 * defaults. The new thread inherits the caller's signal mask. EAGAIN: no resources; EINVAL: null argument. */
uint32_t OsPthreadCreate(OsThread* thread, const void* attributes, OsThreadEntry entry, void* argument);

/* Gives the thread up: its resources are freed when its entry returns. Call once per created thread. */
uint32_t OsPthreadDetach(OsThread thread);

/* Sleeps the given number of whole seconds; signals do not shorten the sleep. Always returns 0. */
uint32_t OsSleep(uint32_t seconds);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
