// The notify protocol towards the service manager.
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kivo/os_monitor.h"
#include "linux/service_manager.h"

namespace {

OsMonitorProInfo Info(const char* name, uint32_t timeout) {
    OsMonitorProInfo info{};
    std::strncpy(info.procName, name, sizeof info.procName - 1);
    info.timeout = timeout;
    return info;
}

}  // namespace

TEST(OsMonitorNotify, RegistrationIsReadinessAndTheTimeLimitInMicroseconds) {
    support::ServiceManager manager;
    const OsMonitorProInfo info = Info("ominspect", 30000);
    EXPECT_EQ(OsMonitorProReg(&info), 0U);
    EXPECT_EQ(manager.Notifications(), std::vector<std::string>{"READY=1\nWATCHDOG_USEC=30000000"});
    EXPECT_EQ(OsMonitorProActivate("ominspect"), 0U);
    EXPECT_EQ(manager.Notifications(), std::vector<std::string>{"WATCHDOG=1"});
}

TEST(OsMonitorNotify, RefusedCallsTellTheManagerNothing) {
    const OsMonitorProInfo info = Info("ominspect", 30000);
    ASSERT_EQ(OsMonitorProReg(&info), 0U);
    support::ServiceManager manager;
    const OsMonitorProInfo noLimit = Info("ominspect", 0);
    EXPECT_EQ(OsMonitorProReg(&noLimit), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(OsMonitorProActivate("another"), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(manager.Notifications(), std::vector<std::string>{});
    EXPECT_EQ(OsMonitorProActivate("ominspect"), 0U);
}

TEST(OsMonitorNotify, AManagerThatCannotBeReachedIsAnError) {
    setenv("NOTIFY_SOCKET", "/nonexistent/notify", 1);
    const OsMonitorProInfo info = Info("ominspect", 30000);
    EXPECT_EQ(OsMonitorProReg(&info), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(OsMonitorProActivate("ominspect"), static_cast<uint32_t>(ENOENT));
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(OsMonitorProActivate("ominspect"), 0U);
}
