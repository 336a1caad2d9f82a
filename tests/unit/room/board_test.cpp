// The mainboard, on machines that are written down.
#include "board.h"

#include <gtest/gtest.h>

#include "machine.h"

namespace {

using support::Machine;

std::string Board(const Machine& machine, const room::BoardSettings& settings = {}) {
    return support::Said(room::CheckMainboard(settings, machine.Files()));
}

TEST(Board, ADesktopThatIsWell) {
    EXPECT_EQ(Board(Machine("desktop")),
              "success: hottest sensor 54 °C; 2 fans turn; no memory errors; never throttled; 2 drives in order; "
              "no machine checks");
}

TEST(Board, ASmallBoardThatIsWell) {
    EXPECT_EQ(Board(Machine("small_board")), "success: hottest sensor 48 °C; never throttled; 1 drive in order");
}

TEST(Board, AVirtualMachineHasNothingToLookAt) {
    EXPECT_EQ(Board(Machine("virtual")),
              "unknown: this machine shows no sensors, no error counts and no state of its drives");
    EXPECT_EQ(Board(Machine()), "unknown: this machine shows no sensors, no error counts and no state of its drives");
}

TEST(Board, TemperaturesAgainstTheirLimits) {
    const Machine machine("desktop");
    machine.Set("/sys/class/hwmon/hwmon1/temp1_input", "83999");
    EXPECT_TRUE(Board(machine).starts_with("success: hottest sensor 84 °C;"));
    machine.Set("/sys/class/hwmon/hwmon1/temp1_input", "84000");
    EXPECT_EQ(Board(machine), "warn: coretemp Package id 0 has 84 °C, high from 84 °C; check the cooling");
    machine.Set("/sys/class/hwmon/hwmon1/temp1_input", "100000");
    EXPECT_EQ(Board(machine), "fail: coretemp Package id 0 has 100 °C, critical from 100 °C; check the cooling now");
    EXPECT_EQ(Board(Machine("desktop"), {.maxTemperature = 53}),
              "fail: coretemp Package id 0 has 54 °C, more than 53 °C; check the cooling");
    EXPECT_TRUE(Board(Machine("desktop"), {.maxTemperature = 54}).starts_with("success"));
}

TEST(Board, ATemperatureWithoutALimitIsNoVerdict) {
    const Machine machine;
    machine.Set("/sys/class/hwmon/hwmon0/name", "acpitz");
    machine.Set("/sys/class/hwmon/hwmon0/temp1_input", "20500");
    machine.Set("/sys/class/hwmon/hwmon0/temp1_crit", "0");
    EXPECT_EQ(Board(machine), "unknown: hottest sensor 21 °C, but none tells its limit; set maxTemperature");
    EXPECT_EQ(Board(machine, {.maxTemperature = 40}), "success: hottest sensor 21 °C");
}

TEST(Board, ASensorThatIsBrokenIsPassedOver) {
    const Machine machine("small_board");
    machine.Break("/sys/class/hwmon/hwmon0/temp1_input");
    EXPECT_EQ(Board(machine), "success: never throttled; 1 drive in order");
    machine.Remove("/sys/class/hwmon/hwmon0/temp1_input");
    machine.Set("/sys/class/hwmon/hwmon0/temp1_input", "hot");
    EXPECT_EQ(Board(machine), "success: never throttled; 1 drive in order");
}

TEST(Board, FansThatAreTooSlow) {
    const Machine machine("desktop");
    machine.Set("/sys/class/hwmon/hwmon2/fan2_input", "0");
    EXPECT_EQ(Board(machine), "fail: nct6775 CPU fan turns at 0/min, at least 600 wanted; clean or replace the fan");
    machine.Set("/sys/class/hwmon/hwmon2/fan2_input", "600");
    EXPECT_EQ(Board(machine, {.fans = 3}), "fail: 2 of 3 fans turn; clean or replace the fan");
    machine.Set("/sys/class/hwmon/hwmon2/fan1_alarm", "1");
    EXPECT_EQ(Board(machine), "fail: nct6775 fan1 turns at 812/min, at least 0 wanted; clean or replace the fan");
}

TEST(Board, MemoryErrors) {
    const Machine machine("desktop");
    machine.Set("/sys/devices/system/edac/mc/mc0/ce_count", "3");
    EXPECT_EQ(Board(machine), "warn: 3 corrected memory errors since the start; replace the memory soon");
    machine.Set("/sys/devices/system/edac/mc/mc1/ue_count", "1");
    EXPECT_EQ(Board(machine), "fail: 1 uncorrected memory errors since the start; replace the memory");
}

TEST(Board, Throttling) {
    const Machine machine("desktop");
    machine.Set("/sys/devices/system/cpu/cpu1/thermal_throttle/core_throttle_count", "17");
    EXPECT_EQ(Board(machine), "warn: processor throttled 17 times by heat since the start; check the cooling");
    const Machine board("small_board");
    for (const auto& [mask, said] :
         {std::pair("50005", "fail: the supply's voltage is too low; use a stronger power supply"),
          std::pair("0x4", "warn: the processor is throttled now; check the cooling"),
          std::pair("50000",
                    "warn: low voltage or throttling since the start; check power supply and "
                    "cooling")}) {
        board.Set("/sys/devices/platform/soc/soc:firmware/get_throttled", mask);
        EXPECT_EQ(Board(board), said);
    }
}

TEST(Board, DrivesThatWearOutOrFail) {
    const Machine board("small_board");
    board.Set("/sys/block/mmcblk0/device/life_time", "0x01 0x0a");
    EXPECT_EQ(Board(board), "warn: mmcblk0 has used over 90 % of its life; replace it soon");
    board.Set("/sys/block/mmcblk0/device/life_time", "0x0b 0x01");
    EXPECT_EQ(Board(board), "fail: mmcblk0 is worn out; replace it now");
    board.Set("/sys/block/mmcblk0/device/life_time", "0x01 0x01");
    board.Set("/sys/block/mmcblk0/device/pre_eol_info", "0x03");
    EXPECT_EQ(Board(board), "fail: mmcblk0 is worn out; replace it now");

    const Machine machine("desktop");
    machine.Set("/sys/block/sda/device/ioerr_cnt", "0x1f");
    EXPECT_EQ(Board(machine), "warn: drive sda counts 31 failed requests; save its data");
    machine.Set("/sys/block/nvme0n1/device/state", "dead");
    EXPECT_EQ(Board(machine), "fail: drive nvme0n1 is dead; check or replace it");
    machine.Set("/sys/block/md0/md/degraded", "1");
    EXPECT_EQ(Board(machine),
              "fail: array md0 has lost a drive; replace it; drive nvme0n1 is dead; check or replace it");
}

TEST(Board, ErrorsOfTheHardware) {
    const Machine machine("desktop");
    machine.Set("/sys/bus/pci/devices/0000:00:1c.0/aer_dev_nonfatal", "Undefined 0\\nTOTAL_ERR_NONFATAL 2");
    EXPECT_EQ(Board(machine), "warn: bus device 0000:00:1c.0 counts 2 nonfatal errors; reseat or replace it");
    machine.Set("/proc/interrupts", "   CPU0   CPU1\\n MCE:   1   2   Machine check exceptions");
    EXPECT_EQ(Board(machine), "fail: 3 machine-check errors since the start; see the kernel's log");
}

}  // namespace
