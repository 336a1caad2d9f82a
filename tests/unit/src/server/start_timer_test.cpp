// Signal mask and timer manager.
//
// The program is linked so that OsPthreadSigmask passes through here.
#include <algorithm>
#include <csignal>
#include <string>

#include "kivo/os_signal.h"
#include "server/start.h"
#include "support/journal_text.h"
#include "support/platform_test.h"

using support::Lines;

namespace {

enum class OldSet { kNotPassed, kNull, kZero, kOther };
OldSet g_oldSet = OldSet::kNotPassed;

OldSet KindOf(const OsSigSet* oldSet) {
    if (oldSet == nullptr) {
        return OldSet::kNull;
    }
    const auto* const bytes = reinterpret_cast<const unsigned char*>(oldSet);
    return std::all_of(bytes, bytes + sizeof(*oldSet), [](unsigned char byte) { return byte == 0; }) ? OldSet::kZero
                                                                                                     : OldSet::kOther;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker makes the names
extern "C" {

uint32_t __real_OsPthreadSigmask(uint32_t how, const OsSigSet* set, OsSigSet* oldSet);
uint32_t __wrap_OsPthreadSigmask(uint32_t how, const OsSigSet* set, OsSigSet* oldSet) {
    g_oldSet = KindOf(oldSet);
    return __real_OsPthreadSigmask(how, set, oldSet);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace {

class InitTimerTest : public support::PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        sigset_t none;
        sigemptyset(&none);
        ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &none, nullptr), 0);
    }

    static bool Blocked(int signal) {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return sigismember(&mask, signal) == 1;
    }
};

}  // namespace

TEST_F(InitTimerTest, BlocksTheTwoSignalsThenStartsTheTimerManager) {
    EXPECT_EQ(InitTimer(), 0U);
    EXPECT_EQ(support::Steps(), (Lines{"OsSigEmptySet", "OsSigAddSet(17)", "OsSigAddSet(10)", "OsPthreadSigmask(0)",
                                       "OsTmrManagerInit(1, 0, 0)"}));
    EXPECT_TRUE(Blocked(SIGCHLD));
    EXPECT_TRUE(Blocked(SIGUSR1));
    EXPECT_FALSE(Blocked(SIGUSR2));
    EXPECT_FALSE(Blocked(SIGTERM));
}

TEST_F(InitTimerTest, PassesAZeroedSetForTheOldMask) {
    static_assert(sizeof(OsSigSet) == 128);
    EXPECT_EQ(InitTimer(), 0U);
    EXPECT_EQ(g_oldSet, OldSet::kZero);
}

TEST_F(InitTimerTest, StopsWhenTheSetCannotBeEmptied) {
    kivo::fake::Fail("OsSigEmptySet", 22);
    EXPECT_EQ(InitTimer(), 22U);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_server 18: OsSigEmptySet fail:22"}));
}

TEST_F(InitTimerTest, StopsWhenSigchldCannotBeAdded) {
    kivo::fake::Fail("OsSigAddSet", 23);
    EXPECT_EQ(InitTimer(), 23U);
    EXPECT_EQ(support::Steps(), (Lines{"OsSigEmptySet", "1 inspect_server 18: OsSigAddSet fail:23"}));
}

TEST_F(InitTimerTest, StopsWhenSigusr1CannotBeAdded) {
    kivo::fake::Fail("OsSigAddSet", 24, 1, 1);
    EXPECT_EQ(InitTimer(), 24U);
    EXPECT_EQ(support::Steps(),
              (Lines{"OsSigEmptySet", "OsSigAddSet(17)", "1 inspect_server 18: OsSigAddSet fail:24"}));
}

TEST_F(InitTimerTest, StopsWhenTheMaskCannotBeSet) {
    kivo::fake::Fail("OsPthreadSigmask", 0xffffffff);
    EXPECT_EQ(InitTimer(), 0xffffffffU);
    EXPECT_EQ(support::Steps(), (Lines{"OsSigEmptySet", "OsSigAddSet(17)", "OsSigAddSet(10)",
                                       "1 inspect_server 18: OsPthreadSigmask fail:-1"}));
    EXPECT_FALSE(Blocked(SIGCHLD));
}

TEST_F(InitTimerTest, GivesTheTimerManagersFailure) {
    kivo::fake::Fail("OsTmrManagerInit", 12);
    EXPECT_EQ(InitTimer(), 12U);
    EXPECT_EQ(support::Steps(), (Lines{"OsSigEmptySet", "OsSigAddSet(17)", "OsSigAddSet(10)", "OsPthreadSigmask(0)",
                                       "1 inspect_server 18: Init 10ms timer failed:12"}));
}
