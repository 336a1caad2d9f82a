// Reader-writer lock over pthread_rwlock_t.
#include "kivo/os_lock.h"

#include <pthread.h>

#include <cerrno>
#include <memory>
#include <new>

namespace {

pthread_rwlock_t* Impl(const OsRwLock* lock) {
    return lock == nullptr ? nullptr : static_cast<pthread_rwlock_t*>(lock->impl);
}

uint32_t Apply(int (*operation)(pthread_rwlock_t*), const OsRwLock* lock) {
    pthread_rwlock_t* impl = Impl(lock);
    return impl == nullptr ? EINVAL : static_cast<uint32_t>(operation(impl));
}

// A waiting writer comes before new readers: a stream of readers must not starve it.
int InitWriterFirst(pthread_rwlock_t* impl) {
    pthread_rwlockattr_t attributes;
    if (const int error = pthread_rwlockattr_init(&attributes); error != 0) {
        return error;
    }
    pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    const int error = pthread_rwlock_init(impl, &attributes);
    pthread_rwlockattr_destroy(&attributes);
    return error;
}

}  // namespace

uint32_t OsRwLockInit(struct OsRwLock* lock, uint32_t shared) {
    if (lock == nullptr || shared != 0) {
        return EINVAL;
    }
    std::unique_ptr<pthread_rwlock_t> impl(new (std::nothrow) pthread_rwlock_t);
    if (!impl) {
        return ENOMEM;
    }
    if (const int error = InitWriterFirst(impl.get()); error != 0) {
        return static_cast<uint32_t>(error);
    }
    lock->impl = impl.release();
    return 0;
}

uint32_t OsRwLockRdLock(struct OsRwLock* lock) {
    return Apply(pthread_rwlock_rdlock, lock);
}

uint32_t OsRwLockWrLock(struct OsRwLock* lock) {
    return Apply(pthread_rwlock_wrlock, lock);
}

uint32_t OsRwLockUnLock(struct OsRwLock* lock) {
    return Apply(pthread_rwlock_unlock, lock);
}

uint32_t OsRwLockDestroy(struct OsRwLock* lock) {
    const uint32_t result = Apply(pthread_rwlock_destroy, lock);
    if (result == 0) {
        delete Impl(lock);
        lock->impl = nullptr;
    }
    return result;
}
