// Only a wait on a condition ends with a token; this one never holds.
#include "common/pause.h"

#include <condition_variable>
#include <mutex>

namespace ominspect {

bool Pause(std::chrono::milliseconds time, const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    (void)never.wait_for(lock, stop, time, [] { return false; });
    return !stop.stop_requested();
}

}  // namespace ominspect
