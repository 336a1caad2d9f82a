// Polling for what a test waits for, with a generous limit instead of a time.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace support {

/// Asks again and again until `condition` holds; false when it does not within the limit.
inline bool Eventually(const std::function<bool()>& condition, std::chrono::seconds limit = std::chrono::seconds(60)) {
    constexpr std::chrono::milliseconds kStep{5};
    for (const auto end = std::chrono::steady_clock::now() + limit; !condition();) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(kStep);
    }
    return true;
}

}  // namespace support
