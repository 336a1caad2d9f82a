// Reader-writer lock.
#include "kivo/os_lock.h"

#include <atomic>
#include <cerrno>

#include <gtest/gtest.h>

#include "platform_control.h"
#include "thread_starter.h"

namespace {

class OsRwLockTest : public support::ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        ASSERT_EQ(OsRwLockInit(&lock_, 0), 0U);
    }

    void TearDown() override {
        EXPECT_EQ(OsRwLockDestroy(&lock_), 0U);
        ContractTest::TearDown();
    }

    OsRwLock lock_{};
};

constexpr uint32_t kInvalid = EINVAL;

}  // namespace

TEST_F(OsRwLockTest, ReadersHoldItTogether) {
    std::atomic<int> holding{0};
    std::atomic<int> met{0};
    for (int i = 0; i < 4; ++i) {
        support::StartThread([&] {
            EXPECT_EQ(OsRwLockRdLock(&lock_), 0U);
            ++holding;
            EXPECT_TRUE(support::WaitFor([&] { return holding == 4; }));
            EXPECT_EQ(OsRwLockUnLock(&lock_), 0U);
            ++met;
        });
    }
    EXPECT_TRUE(support::WaitFor([&] { return met == 4; }));
}

TEST_F(OsRwLockTest, WriterWaitsForEveryReader) {
    std::atomic<bool> asking{false};
    std::atomic<bool> writing{false};
    std::atomic<bool> done{false};
    ASSERT_EQ(OsRwLockRdLock(&lock_), 0U);
    support::StartThread([&] {
        asking = true;
        EXPECT_EQ(OsRwLockWrLock(&lock_), 0U);
        writing = true;
        EXPECT_EQ(OsRwLockUnLock(&lock_), 0U);
        done = true;
    });
    EXPECT_TRUE(support::WaitFor([&] { return asking.load(); }));
    EXPECT_FALSE(writing);
    EXPECT_EQ(OsRwLockUnLock(&lock_), 0U);
    EXPECT_TRUE(support::WaitFor([&] { return done.load(); }));
    EXPECT_TRUE(writing);
}

TEST_F(OsRwLockTest, ReaderAndWriterWaitForAWriter) {
    std::atomic<int> asking{0};
    std::atomic<int> entered{0};
    std::atomic<int> done{0};
    ASSERT_EQ(OsRwLockWrLock(&lock_), 0U);
    for (auto* const acquire : {OsRwLockRdLock, OsRwLockWrLock}) {
        support::StartThread([&, acquire] {
            ++asking;
            EXPECT_EQ(acquire(&lock_), 0U);
            ++entered;
            EXPECT_EQ(OsRwLockUnLock(&lock_), 0U);
            ++done;
        });
    }
    EXPECT_TRUE(support::WaitFor([&] { return asking == 2; }));
    EXPECT_EQ(entered, 0);
    EXPECT_EQ(OsRwLockUnLock(&lock_), 0U);
    EXPECT_TRUE(support::WaitFor([&] { return done == 2; }));
}

TEST_F(OsRwLockTest, ReadersNeverSeeAHalfDoneChange) {
    // Plain variables on purpose: only the lock keeps them in step.
    int first = 0;
    int second = 0;
    std::atomic<int> torn{0};
    std::atomic<int> ended{0};
    constexpr int kRounds = 500;
    for (int i = 0; i < 2; ++i) {
        support::StartThread([&] {
            for (int round = 0; round < kRounds; ++round) {
                OsRwLockWrLock(&lock_);
                ++first;
                ++second;
                OsRwLockUnLock(&lock_);
            }
            ++ended;
        });
        support::StartThread([&] {
            for (int round = 0; round < kRounds; ++round) {
                OsRwLockRdLock(&lock_);
                torn += first == second ? 0 : 1;
                OsRwLockUnLock(&lock_);
            }
            ++ended;
        });
    }
    EXPECT_TRUE(support::WaitFor([&] { return ended == 4; }));
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(OsRwLockRdLock(&lock_), 0U);
    EXPECT_EQ(first, 1000);
    EXPECT_EQ(second, 1000);
    EXPECT_EQ(OsRwLockUnLock(&lock_), 0U);
}

TEST_F(OsRwLockTest, LocksAreIndependent) {
    OsRwLock other{};
    ASSERT_EQ(OsRwLockInit(&other, 0), 0U);
    EXPECT_EQ(OsRwLockWrLock(&lock_), 0U);
    EXPECT_EQ(OsRwLockWrLock(&other), 0U);
    EXPECT_EQ(OsRwLockUnLock(&lock_), 0U);
    EXPECT_EQ(OsRwLockUnLock(&other), 0U);
    EXPECT_EQ(OsRwLockDestroy(&other), 0U);
}

TEST_F(OsRwLockTest, OnlyAProcessPrivateLockCanBeMade) {
    OsRwLock other{};
    EXPECT_EQ(OsRwLockInit(&other, 1), kInvalid);
    EXPECT_EQ(OsRwLockInit(nullptr, 0), kInvalid);
}

TEST_F(OsRwLockTest, NullAndDestroyedLocksAreRefused) {
    OsRwLock gone{};
    ASSERT_EQ(OsRwLockInit(&gone, 0), 0U);
    ASSERT_EQ(OsRwLockDestroy(&gone), 0U);
    for (auto* const operation : {OsRwLockRdLock, OsRwLockWrLock, OsRwLockUnLock, OsRwLockDestroy}) {
        EXPECT_EQ(operation(nullptr), kInvalid);
        EXPECT_EQ(operation(&gone), kInvalid);
    }
}
