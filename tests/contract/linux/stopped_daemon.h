// A bus daemon that hangs.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <systemd/sd-bus.h>

#include "support/eventually.h"
#include "support/process_state.h"
#include "support/raw_connection.h"

namespace support {

/// Holds the bus daemon of a connection up while it lives.
class StoppedDaemon {
public:
    explicit StoppedDaemon(const RawConnection& connection) {
        sd_bus_creds* credentials = nullptr;
        EXPECT_GE(sd_bus_get_owner_creds(connection.Get(), SD_BUS_CREDS_PID, &credentials), 0);
        EXPECT_GE(sd_bus_creds_get_pid(credentials, &pid_), 0);
        sd_bus_creds_unref(credentials);
        EXPECT_EQ(kill(pid_, SIGSTOP), 0);
        EXPECT_TRUE(Eventually([this] { return IsAtStandstill(pid_); }));
    }
    ~StoppedDaemon() { kill(pid_, SIGCONT); }
    StoppedDaemon(const StoppedDaemon&) = delete;
    StoppedDaemon& operator=(const StoppedDaemon&) = delete;
    StoppedDaemon(StoppedDaemon&&) = delete;
    StoppedDaemon& operator=(StoppedDaemon&&) = delete;

private:
    pid_t pid_ = 0;
};

}  // namespace support
