// The time limit of a collection, in virtual time.
#include <cstddef>
#include <type_traits>

#include "kivo/os_thread.h"
#include "ominspect/collect.h"
#include "support/platform_test.h"

// Callers outside fill this record.
static_assert(std::is_standard_layout_v<CollectConfig>);
static_assert(sizeof(CollectConfig) == 8);
static_assert(offsetof(CollectConfig, startTimer) == 0);
static_assert(offsetof(CollectConfig, running) == 1);
static_assert(offsetof(CollectConfig, timeout) == 4);

namespace {

class CollectTimerTest : public support::PlatformTest {
protected:
    // How many seconds a timer of this limit takes.
    uint64_t Seconds(uint32_t timeout) {
        m_config.running = true;
        m_config.timeout = timeout;
        const uint64_t begin = kivo::fake::Now();
        CollectTimer(m_config);
        return (kivo::fake::Now() - begin) / 1000;
    }

    CollectConfig m_config;
};

}  // namespace

TEST_F(CollectTimerTest, ClearsRunningWhenTheLimitHasPassed) {
    EXPECT_EQ(Seconds(25), 25U);
    EXPECT_FALSE(m_config.running);
}

TEST_F(CollectTimerTest, ClearsItAtOnceForALimitOfZero) {
    EXPECT_EQ(Seconds(0), 0U);
    EXPECT_FALSE(m_config.running);
}

TEST_F(CollectTimerTest, NeverTakesMoreThanAMinute) {
    EXPECT_EQ(Seconds(60), 60U);
    EXPECT_EQ(Seconds(61), 60U);
    EXPECT_EQ(Seconds(100), 60U);
    EXPECT_EQ(Seconds(4294967295U), 60U);
}

TEST_F(CollectTimerTest, EndsWithinASecondOfTheCopy) {
    m_config.running = true;
    m_config.timeout = 25;
    OsThread timer{};
    const auto run = [](void* config) -> void* {
        CollectTimer(*static_cast<CollectConfig*>(config));
        return nullptr;
    };
    ASSERT_EQ(OsPthreadCreate(&timer, nullptr, run, &m_config), 0U);
    EXPECT_EQ(OsPthreadDetach(timer), 0U);
    kivo::fake::Pass(3);
    EXPECT_EQ(kivo::fake::LiveThreads(), 1U);
    m_config.running = false;
    kivo::fake::Pass(1);
    EXPECT_EQ(kivo::fake::LiveThreads(), 0U);
}

TEST_F(CollectTimerTest, EndsAtOnceWhenTheCopyIsOver) {
    m_config.running = false;
    m_config.timeout = 25;
    CollectTimer(m_config);
    EXPECT_EQ(kivo::fake::Now(), 1700000000000U);
}
