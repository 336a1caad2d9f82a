// The extra items, on machines that are written down.
#include "extra.h"

#include <gtest/gtest.h>

#include "machine.h"

namespace {

using namespace room;
using support::Machine;
using support::Said;

TEST(ExtraDiskSpace, OfEveryNamedDisk) {
    const Machine machine;
    machine.Set("/data/file", "");
    EXPECT_EQ(Said(CheckDiskSpace({}, machine.Files())), "unknown: the room's file names no disk");
    ExtraSettings settings;
    settings.disks = {{"/data", 1}};
    const std::string good = Said(CheckDiskSpace(settings, machine.Files()));
    EXPECT_TRUE(good.starts_with("success: /data has ") && good.ends_with("iB) free")) << good;
    settings.disks = {{"/data", 1}, {"/data", 101}};
    const std::string bad = Said(CheckDiskSpace(settings, machine.Files()));
    EXPECT_TRUE(bad.starts_with("fail: /data has ") &&
                bad.ends_with(" free, at least 101 % wanted; remove what is not needed"))
        << bad;
    settings.disks = {{"/gone", 1}};
    EXPECT_EQ(Said(CheckDiskSpace(settings, machine.Files())),
              "fail: /gone has no space that could be told; is it mounted?");
}

TEST(ExtraMemory, ThatProgramsCanStillGet) {
    const Machine machine;
    ExtraSettings settings;
    settings.available = 10;
    EXPECT_EQ(Said(CheckMemory(settings, machine.Files())),
              "unknown: the kernel does not tell how much memory there is");
    machine.Set("/proc/meminfo",
                "MemTotal:        8000000 kB\\nMemFree:           10000 kB\\nMemAvailable:     800000 kB");
    EXPECT_EQ(Said(CheckMemory(settings, machine.Files())), "success: 10 % of the memory is available");
    machine.Set("/proc/meminfo", "MemTotal:        8000000 kB\\nMemAvailable:     799999 kB");
    EXPECT_EQ(Said(CheckMemory(settings, machine.Files())),
              "fail: 9 % of the memory is available, at least 10 % wanted; end programs, or restart the computer");
    machine.Set("/proc/meminfo", "MemTotal:\\nMemAvailable: many kB");
    EXPECT_EQ(Said(CheckMemory(settings, machine.Files())),
              "unknown: the kernel does not tell how much memory there is");
}

class ExtraUpdates : public testing::Test {
protected:
    // A package manager that prints this and ends with this code.
    void Manager(const std::string& output, int code) const {
        machine_.Set("/usr/bin/apt-get", "#!/bin/sh\\n[ \"$1 $3\" = '--simulate upgrade' ] || exit 1\\nprintf '" +
                                             output + "'\\nexit " + std::to_string(code));
        std::filesystem::permissions(machine_.Root() + "/usr/bin/apt-get", std::filesystem::perms::owner_all);
    }
    [[nodiscard]] std::string Look() const { return Said(CheckUpdates(machine_.Files())); }

    Machine machine_;
};

TEST_F(ExtraUpdates, AreCounted) {
    EXPECT_EQ(Look(), "unknown: this system has no apt-get that could tell");
    Manager("0 upgraded", 0);
    EXPECT_EQ(Look(), "success: nothing could be upgraded, by the lists that are here");
    Manager("2 upgraded\\012Inst a [1] (2)\\012Inst b [1] (2)\\012Conf a (2)\\012", 0);
    EXPECT_EQ(Look(), "warn: 2 packages could be upgraded; run apt-get upgrade");
    Manager("Inst a", 100);
    EXPECT_EQ(Look(), "unknown: apt-get does not tell what could be upgraded; run apt-get --simulate upgrade");
}

TEST_F(ExtraUpdates, ARestartThatIsWaitedFor) {
    Manager("Inst a", 0);
    machine_.Set("/run/reboot-required", "*** System restart required ***");
    EXPECT_EQ(Look(), "warn: upgraded packages wait for a restart; restart the computer");
}

TEST(ExtraUsb, NamedDevices) {
    const Machine machine;
    ExtraSettings settings;
    EXPECT_EQ(Said(CheckUsb(settings, machine.Files())), "unknown: the room's file names no USB device");
    settings.usb = {{"046d:085c", "camera"}};
    EXPECT_EQ(Said(CheckUsb(settings, machine.Files())), "fail: camera (046d:085c) is not there; check its cable");
    machine.Set("/sys/bus/usb/devices/1-2/idVendor", "046d");
    EXPECT_EQ(Said(CheckUsb(settings, machine.Files())), "fail: camera (046d:085c) is not there; check its cable");
    machine.Set("/sys/bus/usb/devices/1-2/idProduct", "085c");
    EXPECT_EQ(Said(CheckUsb(settings, machine.Files())), "success: camera (046d:085c) is there");
    machine.Set("/proc/uptime", "3600.12 7000.00");
    machine.Set("/sys/bus/usb/devices/1-2/power/connected_duration", "600000");
    EXPECT_EQ(Said(CheckUsb(settings, machine.Files())), "success: camera (046d:085c) is there");
    machine.Set("/sys/bus/usb/devices/1-2/power/connected_duration", "599999");
    EXPECT_EQ(Said(CheckUsb(settings, machine.Files())),
              "warn: camera (046d:085c) came 9 min ago; check its cable if nobody plugged it in");
    machine.Set("/proc/uptime", "3599.99 7000.00");
    EXPECT_EQ(Said(CheckUsb(settings, machine.Files())), "success: camera (046d:085c) is there");
}

TEST(ExtraUptime, Days) {
    const Machine machine;
    ExtraSettings settings;
    settings.maxDays = 30;
    EXPECT_EQ(Said(CheckUptime(settings, machine.Files())), "unknown: the kernel does not tell when it started");
    machine.Set("/proc/uptime", "2678399.55 1.0");
    EXPECT_EQ(Said(CheckUptime(settings, machine.Files())), "success: up for 30 days");
    machine.Set("/proc/uptime", "2678400.00 1.0");
    EXPECT_EQ(Said(CheckUptime(settings, machine.Files())),
              "warn: up for 31 days, more than 30; restart the computer when it is free");
}

}  // namespace
