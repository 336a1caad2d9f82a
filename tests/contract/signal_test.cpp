// Signal sets and thread masks.
#include "kivo/os_signal.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include <gtest/gtest.h>

#include "platform_control.h"
#include "thread_starter.h"

namespace {

constexpr uint32_t kInvalid = EINVAL;

OsSigSet SetOf(std::initializer_list<int> signals) {
    OsSigSet set{};
    EXPECT_EQ(OsSigEmptySet(&set), 0U);
    for (const int signal : signals) {
        EXPECT_EQ(OsSigAddSet(&set, static_cast<uint32_t>(signal)), 0U);
    }
    return set;
}

bool Same(const OsSigSet& a, const OsSigSet& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

/// The calling thread's mask.
OsSigSet Mask() {
    const OsSigSet none = SetOf({});
    OsSigSet mask{};
    EXPECT_EQ(OsPthreadSigmask(0, &none, &mask), 0U);
    return mask;
}

/// Leaves the test's own mask as it was.
class OsSignalTest : public support::ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        former_ = Mask();
        const OsSigSet none = SetOf({});
        ASSERT_EQ(OsPthreadSigmask(2, &none, nullptr), 0U);
    }

    void TearDown() override {
        EXPECT_EQ(OsPthreadSigmask(2, &former_, nullptr), 0U);
        ContractTest::TearDown();
    }

private:
    OsSigSet former_{};
};

}  // namespace

TEST_F(OsSignalTest, EmptySetClearsWhateverWasThere) {
    OsSigSet set;
    std::memset(&set, 0xFF, sizeof set);
    EXPECT_EQ(OsSigEmptySet(&set), 0U);
    EXPECT_TRUE(Same(set, SetOf({})));
    EXPECT_EQ(OsSigEmptySet(nullptr), kInvalid);
}

TEST_F(OsSignalTest, AddingASignalTwiceIsTheSameAsOnce) {
    EXPECT_TRUE(Same(SetOf({SIGCHLD, SIGCHLD}), SetOf({SIGCHLD})));
    EXPECT_FALSE(Same(SetOf({SIGCHLD}), SetOf({})));
    EXPECT_FALSE(Same(SetOf({SIGCHLD}), SetOf({SIGUSR1})));
    EXPECT_TRUE(Same(SetOf({SIGCHLD, SIGUSR1}), SetOf({SIGUSR1, SIGCHLD})));
}

TEST_F(OsSignalTest, NumbersThatAreNoSignalsAreRefusedAndChangeNothing) {
    OsSigSet set = SetOf({SIGUSR1});
    EXPECT_EQ(OsSigAddSet(&set, 0), kInvalid);
    EXPECT_EQ(OsSigAddSet(&set, 65), kInvalid);
    EXPECT_EQ(OsSigAddSet(&set, 4294967295U), kInvalid);
    EXPECT_EQ(OsSigAddSet(nullptr, SIGUSR1), kInvalid);
    EXPECT_TRUE(Same(set, SetOf({SIGUSR1})));
}

TEST_F(OsSignalTest, BlockAddsUnblockTakesAwaySetmaskReplaces) {
    const OsSigSet child = SetOf({SIGCHLD});
    const OsSigSet user = SetOf({SIGUSR1});
    OsSigSet former{};

    EXPECT_EQ(OsPthreadSigmask(0, &child, nullptr), 0U);
    EXPECT_EQ(OsPthreadSigmask(0, &user, &former), 0U);
    EXPECT_TRUE(Same(former, child));
    EXPECT_TRUE(Same(Mask(), SetOf({SIGCHLD, SIGUSR1})));

    EXPECT_EQ(OsPthreadSigmask(1, &child, &former), 0U);
    EXPECT_TRUE(Same(former, SetOf({SIGCHLD, SIGUSR1})));
    EXPECT_TRUE(Same(Mask(), user));

    EXPECT_EQ(OsPthreadSigmask(2, &child, &former), 0U);
    EXPECT_TRUE(Same(former, user));
    EXPECT_TRUE(Same(Mask(), child));
}

TEST_F(OsSignalTest, UnknownWaysAndNullSetsAreRefusedAndChangeNothing) {
    const OsSigSet child = SetOf({SIGCHLD});
    OsSigSet former = SetOf({SIGUSR2});
    EXPECT_EQ(OsPthreadSigmask(3, &child, &former), kInvalid);
    EXPECT_EQ(OsPthreadSigmask(4294967295U, &child, &former), kInvalid);
    EXPECT_EQ(OsPthreadSigmask(0, nullptr, &former), kInvalid);
    EXPECT_TRUE(Same(former, SetOf({SIGUSR2})));
    EXPECT_TRUE(Same(Mask(), SetOf({})));
}

TEST_F(OsSignalTest, ABlockedSignalStaysPending) {
    const OsSigSet user = SetOf({SIGUSR1});
    ASSERT_EQ(OsPthreadSigmask(0, &user, nullptr), 0U);
    ASSERT_EQ(raise(SIGUSR1), 0);  // would end the process if it were delivered
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGUSR1), 1);
    const timespec now{};
    EXPECT_EQ(sigtimedwait(&pending, nullptr, &now), SIGUSR1);  // taken, before the mask goes back
}

TEST_F(OsSignalTest, ANewThreadInheritsItsCreatorsMask) {
    const OsSigSet both = SetOf({SIGCHLD, SIGUSR1});
    ASSERT_EQ(OsPthreadSigmask(0, &both, nullptr), 0U);
    OsSigSet inherited{};
    std::atomic<bool> done{false};
    support::StartThread([&] {
        inherited = Mask();
        done = true;
    });
    EXPECT_TRUE(support::WaitFor([&] { return done.load(); }));
    EXPECT_TRUE(Same(inherited, both));
}

TEST_F(OsSignalTest, AMaskIsTheThreadsOwn) {
    std::atomic<bool> done{false};
    support::StartThread([&] {
        const OsSigSet user = SetOf({SIGUSR1});
        EXPECT_EQ(OsPthreadSigmask(0, &user, nullptr), 0U);
        done = true;
    });
    EXPECT_TRUE(support::WaitFor([&] { return done.load(); }));
    EXPECT_TRUE(Same(Mask(), SetOf({})));
}
