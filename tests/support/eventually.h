// Polling for what a test waits for, with a generous limit instead of a time.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace support {

/// Asks again and again, every `step`, until `condition` holds; false when it does not within the limit.
inline bool Eventually(const std::function<bool()>& condition, std::chrono::seconds limit = std::chrono::seconds(60),
                       std::chrono::microseconds step = std::chrono::milliseconds(5)) {
    for (const auto end = std::chrono::steady_clock::now() + limit; !condition();) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(step);
    }
    return true;
}

}  // namespace support
