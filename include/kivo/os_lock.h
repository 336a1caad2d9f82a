/*
 * Reader-writer lock (libkivo_os_lock).
 *
 * Results are 0 or an errno(3) number. Not recursive. A lock must be initialised before and destroyed
 * after all its use; every other function may be called from any thread.
 */
#ifndef KIVO_OS_LOCK_H
#define KIVO_OS_LOCK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Owned by the caller; `impl` belongs to the library between OsRwLockInit and OsRwLockDestroy. */
struct OsRwLock {
    void* impl;
};

/* `shared` must be 0: the lock is used by the threads of one process (else EINVAL). ENOMEM: no memory. */
uint32_t OsRwLockInit(struct OsRwLock* lock, uint32_t shared);

/* Waits until no writer holds the lock, then holds it beside other readers. */
uint32_t OsRwLockRdLock(struct OsRwLock* lock);

/* Waits until nobody holds the lock, then holds it alone. */
uint32_t OsRwLockWrLock(struct OsRwLock* lock);

/* Releases one hold of the calling thread. */
uint32_t OsRwLockUnLock(struct OsRwLock* lock);

/* Frees the lock. Nobody may hold it. */
uint32_t OsRwLockDestroy(struct OsRwLock* lock);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
