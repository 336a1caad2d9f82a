// Starts threads the way the code under test does.
#pragma once

#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "kivo/os_thread.h"

namespace support {

/// Runs `body` on a detached thread.
inline void StartThread(std::function<void()> body) {
    auto owned = std::make_unique<std::function<void()>>(std::move(body));
    OsThread thread{};
    const uint32_t result = OsPthreadCreate(
        &thread, nullptr,
        [](void* argument) -> void* {
            const std::unique_ptr<std::function<void()>> mine(static_cast<std::function<void()>*>(argument));
            (*mine)();
            return nullptr;
        },
        owned.get());
    ASSERT_EQ(result, 0U);
    static_cast<void>(owned.release());  // the thread's now
    EXPECT_EQ(OsPthreadDetach(thread), 0U);
}

}  // namespace support
