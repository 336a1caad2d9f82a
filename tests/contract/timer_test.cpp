// Timers.
#include "kivo/os_timer.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "kivo/os_thread.h"
#include "platform_control.h"

namespace {

constexpr uint32_t kInvalid = EINVAL;
constexpr uint32_t kNoTimer = ENOENT;

class OsTimerTest : public support::ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        ASSERT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
    }
};

/// A timer that counts its calls. The count outlives the object: a call may still be under way when it goes.
class Counter {
public:
    Counter(uint32_t period, uint32_t repeat) : calls_(NextCount()) {
        OsTimerParam param{};
        param.mode = 1;
        param.userData = static_cast<uint64_t>(&calls_ - g_counts.data());
        param.period = period;
        param.repeat = repeat;
        param.callback = [](uint64_t userData) -> uint32_t {
            ++g_counts.at(static_cast<size_t>(userData));
            return 1;  // not used by anyone
        };
        EXPECT_EQ(OsTmrCreate(&param, &id_), 0U);
        EXPECT_NE(id_, 0U);
    }
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;
    ~Counter() { OsTmrDelete(id_); }

    OsTimerId Id() const { return id_; }
    int Calls() const { return calls_; }
    bool Reaches(int calls) const {
        return support::WaitFor([&] { return calls_ >= calls; });
    }

private:
    static std::array<std::atomic<int>, 64> g_counts;

    static std::atomic<int>& NextCount() {
        static size_t used = 0;
        return g_counts.at(used++);
    }

    OsTimerId id_ = 0;
    std::atomic<int>& calls_;
};

std::array<std::atomic<int>, 64> Counter::g_counts;

uint32_t DoNothing(uint64_t /*userData*/) {
    return 0;
}

OsTimerParam GoodParam() {
    OsTimerParam param{};
    param.mode = 1;
    param.period = 5;
    param.repeat = 1;
    param.callback = DoNothing;
    return param;
}

}  // namespace

TEST_F(OsTimerTest, ARepeatingTimerFiresUntilItIsDeleted) {
    const Counter counter(1, 1);
    EXPECT_TRUE(counter.Reaches(2));
    EXPECT_EQ(OsTmrDelete(counter.Id()), 0U);
    const Counter other(1, 1);
    EXPECT_TRUE(other.Reaches(1));  // a call that was under way has ended now
    const int calls = counter.Calls();
    EXPECT_TRUE(other.Reaches(2));
    EXPECT_EQ(counter.Calls(), calls);
    EXPECT_EQ(OsTmrDelete(counter.Id()), kNoTimer);
}

TEST_F(OsTimerTest, AOneShotTimerFiresOnceAndIsGone) {
    const Counter once(1, 0);
    const Counter every(1, 1);
    EXPECT_TRUE(every.Reaches(2));
    EXPECT_EQ(once.Calls(), 1);
    EXPECT_EQ(OsTmrDelete(once.Id()), kNoTimer);
}

TEST_F(OsTimerTest, TimersFireInTheOrderInWhichTheyAreDue) {
    static std::mutex mutex;
    static std::vector<uint64_t> fired;
    for (const uint64_t period : {3U, 1U}) {
        OsTimerParam param = GoodParam();
        param.period = static_cast<uint32_t>(period);
        param.repeat = 0;
        param.userData = (uint64_t{0xABCDEF01} << 32U) + period;
        param.callback = [](uint64_t userData) -> uint32_t {
            const std::lock_guard lock(mutex);
            fired.push_back(userData);
            return 0;
        };
        OsTimerId id = 0;
        ASSERT_EQ(OsTmrCreate(&param, &id), 0U);
    }
    EXPECT_TRUE(support::WaitFor([] {
        const std::lock_guard lock(mutex);
        return fired.size() == 2;
    }));
    const std::lock_guard lock(mutex);
    EXPECT_EQ(fired, (std::vector<uint64_t>{0xABCDEF0100000001U, 0xABCDEF0100000003U}));
}

TEST_F(OsTimerTest, ACallbackMayDeleteItsOwnTimerAndCreateAnother) {
    static OsTimerId own;
    static std::atomic<int> calls;
    static std::atomic<int> callsOfNext;
    static std::atomic<uint32_t> deleted;
    static std::atomic<uint32_t> created;
    own = 0;
    deleted = created = 1;
    OsTimerParam param = GoodParam();
    param.period = 1;
    param.callback = [](uint64_t /*userData*/) -> uint32_t {
        deleted = OsTmrDelete(own);
        OsTimerParam next = GoodParam();
        next.period = 1;
        next.repeat = 0;
        next.callback = [](uint64_t /*userData*/) -> uint32_t {
            ++callsOfNext;
            return 0;
        };
        OsTimerId id = 0;
        created = OsTmrCreate(&next, &id);
        ++calls;
        return 0;
    };
    ASSERT_EQ(OsTmrCreate(&param, &own), 0U);
    EXPECT_TRUE(support::WaitFor([] { return callsOfNext == 1; }));  // when its own next call would be due
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(deleted, 0U);
    EXPECT_EQ(created, 0U);
    EXPECT_EQ(OsTmrDelete(own), kNoTimer);
}

TEST_F(OsTimerTest, ACallbackThatBlocksHoldsUpNoOther) {
    static std::atomic<bool> open;
    static std::atomic<int> blocked;
    open = false;
    blocked = 0;
    OsTimerParam param = GoodParam();
    param.period = 1;
    param.repeat = 0;
    param.callback = [](uint64_t /*userData*/) -> uint32_t {
        ++blocked;
        EXPECT_TRUE(support::WaitFor([] { return open.load(); }));
        --blocked;
        return 0;
    };
    OsTimerId id = 0;
    ASSERT_EQ(OsTmrCreate(&param, &id), 0U);
    ASSERT_TRUE(support::WaitFor([] { return blocked == 1; }));
    const Counter created(1, 1);  // while the only other timer blocks
    EXPECT_TRUE(created.Reaches(1));
    ASSERT_EQ(OsTmrCreate(&param, &id), 0U);
    ASSERT_TRUE(support::WaitFor([] { return blocked == 2; }));
    EXPECT_TRUE(created.Reaches(3));
    open = true;
    EXPECT_TRUE(support::WaitFor([] { return blocked == 0; }));
    const Counter after(1, 1);
    EXPECT_TRUE(after.Reaches(2));
}

TEST_F(OsTimerTest, CallsOfOneTimerNeverOverlapAndMissedOnesAreLeftOut) {
    static std::atomic<int> running;
    static std::atomic<int> calls;
    static std::atomic<bool> overlapped;
    calls = 0;
    OsTimerParam param = GoodParam();
    param.period = 1;
    param.callback = [](uint64_t /*userData*/) -> uint32_t {
        overlapped = overlapped || ++running > 1;
        if (++calls == 1) {
            OsSleep(3);
        }
        --running;
        return 0;
    };
    OsTimerId id = 0;
    ASSERT_EQ(OsTmrCreate(&param, &id), 0U);
    const Counter every(1, 1);
    EXPECT_TRUE(every.Reaches(3));
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(support::WaitFor([] { return calls >= 3; }));
    EXPECT_LT(calls, every.Calls());  // the missed ones did not come at once
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(OsTmrDelete(id), 0U);
}

TEST_F(OsTimerTest, DeletingDoesNotWaitForACallThatHasBegun) {
    static std::atomic<bool> open;
    static std::atomic<int> calls;
    static std::atomic<bool> ended;
    open = ended = false;
    calls = 0;
    OsTimerParam param = GoodParam();
    param.period = 1;
    param.callback = [](uint64_t /*userData*/) -> uint32_t {
        ++calls;
        EXPECT_TRUE(support::WaitFor([] { return open.load(); }));
        ended = true;
        return 0;
    };
    OsTimerId id = 0;
    ASSERT_EQ(OsTmrCreate(&param, &id), 0U);
    ASSERT_TRUE(support::WaitFor([] { return calls == 1; }));
    EXPECT_EQ(OsTmrDelete(id), 0U);
    EXPECT_FALSE(ended);
    EXPECT_EQ(OsTmrDelete(id), kNoTimer);
    open = true;
    EXPECT_TRUE(support::WaitFor([] { return ended.load(); }));
    const Counter other(1, 1);
    EXPECT_TRUE(other.Reaches(2));
    EXPECT_EQ(calls, 1);
}

TEST_F(OsTimerTest, ADeletedTimerNeverFires) {
    const Counter gone(1, 0);
    EXPECT_EQ(OsTmrDelete(gone.Id()), 0U);
    const Counter later(1, 0);
    EXPECT_TRUE(later.Reaches(1));
    EXPECT_EQ(gone.Calls(), 0);
}

TEST_F(OsTimerTest, EveryLiveTimerHasItsOwnId) {
    const OsTimerParam param = GoodParam();
    std::set<OsTimerId> ids;
    for (int i = 0; i < 100; ++i) {
        OsTimerId id = 0;
        ASSERT_EQ(OsTmrCreate(&param, &id), 0U);
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 100U);
    EXPECT_FALSE(ids.contains(0));
    for (const OsTimerId id : ids) {
        EXPECT_EQ(OsTmrDelete(id), 0U);
    }
}

TEST_F(OsTimerTest, TheLongestPeriodIsAccepted) {
    OsTimerParam param = GoodParam();
    param.period = 4294967295U;
    OsTimerId id = 0;
    EXPECT_EQ(OsTmrCreate(&param, &id), 0U);
    const Counter soon(1, 0);
    EXPECT_TRUE(soon.Reaches(1));
    EXPECT_EQ(OsTmrDelete(id), 0U);
}

TEST_F(OsTimerTest, BadRecordsAreRefused) {
    const auto create = [](auto change) {
        OsTimerParam param = GoodParam();
        change(param);
        OsTimerId id = 0;
        return OsTmrCreate(&param, &id);
    };
    EXPECT_EQ(create([](OsTimerParam& param) { param.mode = 0; }), kInvalid);
    EXPECT_EQ(create([](OsTimerParam& param) { param.mode = 2; }), kInvalid);
    EXPECT_EQ(create([](OsTimerParam& param) { param.reserved[0] = 1; }), kInvalid);
    EXPECT_EQ(create([](OsTimerParam& param) { param.reserved[43] = 1; }), kInvalid);
    EXPECT_EQ(create([](OsTimerParam& param) { param.period = 0; }), kInvalid);
    EXPECT_EQ(create([](OsTimerParam& param) { param.repeat = 2; }), kInvalid);
    EXPECT_EQ(create([](OsTimerParam& param) { param.callback = nullptr; }), kInvalid);
}

TEST_F(OsTimerTest, NullArgumentsAreRefused) {
    const OsTimerParam param = GoodParam();
    OsTimerId id = 0;
    EXPECT_EQ(OsTmrCreate(nullptr, &id), kInvalid);
    EXPECT_EQ(OsTmrCreate(&param, nullptr), kInvalid);
}

TEST_F(OsTimerTest, NoTimerHasTheIdZero) {
    EXPECT_EQ(OsTmrDelete(0), kNoTimer);
}

TEST_F(OsTimerTest, ManagerRefusesWhatItDoesNotKnowAndMayBeStartedAgain) {
    EXPECT_EQ(OsTmrManagerInit(0, 0, 0), kInvalid);
    EXPECT_EQ(OsTmrManagerInit(1, 1, 0), kInvalid);
    EXPECT_EQ(OsTmrManagerInit(1, 0, 1), kInvalid);
    EXPECT_EQ(OsTmrManagerInit(10, 0, 0), 0U);
    const Counter counter(1, 0);
    EXPECT_EQ(OsTmrManagerInit(1, 0, 0), 0U);
    EXPECT_TRUE(counter.Reaches(1));
}

// In a process of its own, where nobody has started the manager.
TEST(OsTimerDeathTest, NoTimerCanBeCreatedBeforeTheManagerRuns) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const OsTimerParam param = GoodParam();
    OsTimerId id = 0;
    EXPECT_EXIT(std::_Exit(static_cast<int>(OsTmrCreate(&param, &id))), testing::ExitedWithCode(1), "");
}
