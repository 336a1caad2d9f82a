// Process monitor client.
#include "kivo/os_monitor.h"

#include <cerrno>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform_control.h"

namespace {

using support::MonitorSign;

constexpr uint32_t kInvalid = EINVAL;

class OsMonitorTest : public support::ContractTest {};

OsMonitorProInfo Info(std::string_view name, uint32_t timeout) {
    OsMonitorProInfo info{};
    name.copy(info.procName, sizeof info.procName);
    info.timeout = timeout;
    return info;
}

}  // namespace

TEST_F(OsMonitorTest, RegistrationAndActivationsReachTheMonitor) {
    support::Monitor monitor;
    const OsMonitorProInfo info = Info("ominspect", 30000);
    EXPECT_EQ(OsMonitorProReg(&info), 0U);
    EXPECT_EQ(OsMonitorProActivate("ominspect"), 0U);
    EXPECT_EQ(OsMonitorProActivate("ominspect"), 0U);
    EXPECT_EQ(monitor.Signs(), (std::vector<MonitorSign>{{true, 30000}, {}, {}}));
}

TEST_F(OsMonitorTest, TheLongestTimeLimitArrivesUncut) {
    support::Monitor monitor;
    const OsMonitorProInfo info = Info("123456789012345", 4294967295U);
    EXPECT_EQ(OsMonitorProReg(&info), 0U);
    EXPECT_EQ(OsMonitorProActivate("123456789012345"), 0U);
    EXPECT_EQ(monitor.Signs(), (std::vector<MonitorSign>{{true, 4294967295U}, {}}));
}

TEST_F(OsMonitorTest, BadRegistrationsAreRefused) {
    OsMonitorProInfo info = Info("ominspect", 0);
    EXPECT_EQ(OsMonitorProReg(&info), kInvalid);
    info = Info("1234567890123456", 30000);  // no room for a NUL
    EXPECT_EQ(OsMonitorProReg(&info), kInvalid);
    EXPECT_EQ(OsMonitorProReg(nullptr), kInvalid);
}

TEST_F(OsMonitorTest, OnlyTheRegisteredProcessMayActivate) {
    const OsMonitorProInfo info = Info("ominspect", 30000);
    ASSERT_EQ(OsMonitorProReg(&info), 0U);
    EXPECT_EQ(OsMonitorProActivate("ominspec"), kInvalid);
    EXPECT_EQ(OsMonitorProActivate("ominspect2"), kInvalid);
    EXPECT_EQ(OsMonitorProActivate(""), kInvalid);
    EXPECT_EQ(OsMonitorProActivate(nullptr), kInvalid);
}

TEST_F(OsMonitorTest, WithoutAMonitorBothCallsSucceed) {
    const OsMonitorProInfo info = Info("ominspect", 30000);
    EXPECT_EQ(OsMonitorProReg(&info), 0U);
    EXPECT_EQ(OsMonitorProActivate("ominspect"), 0U);
}
