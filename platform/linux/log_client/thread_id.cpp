// A child of fork(2) has a copy of what its parent's thread had asked.
#include "log_client/thread_id.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace kivo::log {

namespace {

std::atomic<unsigned> g_forks{0};  // from the first process to this one

const int kFollowsForks = pthread_atfork(nullptr, nullptr, [] { ++g_forks; });

}  // namespace

const ThreadId& ThreadId::OfThisThread() {
    thread_local ThreadId id;
    thread_local unsigned forks = 0;
    const unsigned now = g_forks;
    if (id.process == 0 || forks != now || kFollowsForks != 0) {
        id = {getpid(), gettid()};
        forks = now;
    }
    return id;
}

}  // namespace kivo::log
