// Threads.
#include "kivo/os_thread.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

#include <gtest/gtest.h>

#include "kivo/os_time.h"
#include "platform_control.h"

namespace {

class OsThreadTest : public support::ContractTest {};

void* Add(void* argument) {
    ++*static_cast<std::atomic<int>*>(argument);
    return nullptr;
}

}  // namespace

TEST_F(OsThreadTest, RunsTheEntryWithItsArgument) {
    std::atomic<int> calls{0};
    OsThread thread{};
    ASSERT_EQ(OsPthreadCreate(&thread, nullptr, Add, &calls), 0U);
    EXPECT_EQ(OsPthreadDetach(thread), 0U);
    EXPECT_TRUE(support::WaitFor([&] { return calls == 1; }));
}

TEST_F(OsThreadTest, AThreadMayEndBeforeItIsDetached) {
    std::atomic<int> calls{0};
    OsThread thread{};
    ASSERT_EQ(OsPthreadCreate(&thread, nullptr, Add, &calls), 0U);
    EXPECT_TRUE(support::WaitFor([&] { return calls == 1; }));
    EXPECT_EQ(OsPthreadDetach(thread), 0U);
}

TEST_F(OsThreadTest, ManyThreadsRun) {
    std::atomic<int> calls{0};
    for (int i = 0; i < 200; ++i) {
        OsThread thread{};
        ASSERT_EQ(OsPthreadCreate(&thread, nullptr, Add, &calls), 0U);
        ASSERT_EQ(OsPthreadDetach(thread), 0U);
    }
    EXPECT_TRUE(support::WaitFor([&] { return calls == 200; }));
}

TEST_F(OsThreadTest, AttributesApply) {
    constexpr size_t kStackSize = size_t{48} << 20U;  // more than the usual default
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackSize);
    std::atomic<size_t> seen{0};
    OsThread thread{};
    const uint32_t result = OsPthreadCreate(
        &thread, &attributes,
        [](void* argument) -> void* {
            pthread_attr_t mine;
            size_t size = 0;
            pthread_getattr_np(pthread_self(), &mine);
            pthread_attr_getstacksize(&mine, &size);
            pthread_attr_destroy(&mine);
            *static_cast<std::atomic<size_t>*>(argument) = size;
            return nullptr;
        },
        &seen);
    pthread_attr_destroy(&attributes);
    ASSERT_EQ(result, 0U);
    EXPECT_EQ(OsPthreadDetach(thread), 0U);
    EXPECT_TRUE(support::WaitFor([&] { return seen != 0; }));
    EXPECT_GE(seen, kStackSize);
}

TEST_F(OsThreadTest, NullArgumentsAreRefused) {
    std::atomic<int> calls{0};
    OsThread thread{};
    EXPECT_EQ(OsPthreadCreate(nullptr, nullptr, Add, &calls), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(OsPthreadCreate(&thread, nullptr, nullptr, &calls), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(calls, 0);
}

TEST_F(OsThreadTest, DetachingNoThreadIsRefused) {
    EXPECT_EQ(OsPthreadDetach(0), static_cast<uint32_t>(ESRCH));
}

TEST_F(OsThreadTest, SleepLastsWholeSeconds) {
    const uint64_t before = OsGetSystemTime();
    EXPECT_EQ(OsSleep(1), 0U);
    EXPECT_GE(OsGetSystemTime(), before + 900);  // the system clock may be corrected meanwhile
}

TEST_F(OsThreadTest, SleepOfZeroSecondsReturns) {
    EXPECT_EQ(OsSleep(0), 0U);
}
