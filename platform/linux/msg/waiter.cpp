// eventfd(2): a write wakes, a read takes all wake-ups back.
#include "msg/waiter.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace kivo::msg {

namespace {

// What OfThisThread returned; null on threads that never asked for theirs.
thread_local const Waiter* t_own = nullptr;

}  // namespace

bool Waiter::Open() {
    if (!Valid()) {
        fd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    }
    return Valid();
}

Waiter::~Waiter() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

void Waiter::Wake() const {
    const int saved = errno;
    const uint64_t one = 1;
    // EAGAIN: the counter is full, so a wake-up is pending anyway.
    [[maybe_unused]] const ssize_t written = write(fd_, &one, sizeof one);
    errno = saved;
}

void Waiter::WakeOther() const {
    if (this != t_own) {
        Wake();
    }
}

void Waiter::Drain() const {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(fd_, &count, sizeof count);
}

Waiter& Waiter::OfThisThread() {
    thread_local Waiter waiter;
    t_own = &waiter;
    (void)waiter.Open();
    return waiter;
}

}  // namespace kivo::msg
