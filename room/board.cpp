// Temperatures and fans are read from the kernel's files and not through libsensors, which can only look at the tree of
// the machine that it runs on.
#include "board.h"

#include <array>
#include <string>

#include "item.h"
#include "settings.h"

namespace room {
namespace {

namespace xml = ominspect::xml;

std::string Celsius(long long milli) {
    return std::to_string((milli + (milli < 0 ? -500 : 500)) / 1000) + " °C";
}

// "coretemp Package id 0", or "coretemp temp1" where the sensor has no label.
std::string SensorName(const KernelFiles& files, const std::string& chip, const std::string& sensor) {
    const std::string name = files.Text(chip + "/name").value_or("sensor");
    return name + ' ' + files.Text(chip + '/' + sensor + "_label").value_or(sensor);
}

// The names of a chip's sensors of one kind: "temp1" for "temp1_input".
std::vector<std::string> Sensors(const KernelFiles& files, const std::string& chip, std::string_view kind) {
    static constexpr std::string_view kEnd = "_input";
    std::vector<std::string> sensors;
    for (const std::string& name : files.Names(chip, kind)) {
        if (name.ends_with(kEnd)) {
            sensors.push_back(name.substr(0, name.size() - kEnd.size()));
        }
    }
    return sensors;
}

std::vector<std::string> Chips(const KernelFiles& files) {
    std::vector<std::string> chips;
    for (const std::string& name : files.Names("/sys/class/hwmon", "hwmon")) {
        chips.push_back("/sys/class/hwmon/" + name);
    }
    return chips;
}

// The lowest of a sensor's limits of one strength. A sensor without a limit often says 0 or less, or more than any chip
// could bear.
std::optional<long long> Limit(const KernelFiles& files, const std::string& sensor, std::string_view kind) {
    constexpr long long kHighest = 200000;
    const auto limit = files.Number(sensor + std::string(kind));
    return limit && *limit > 0 && *limit < kHighest ? limit : std::nullopt;
}

class Temperatures {
public:
    Temperatures(const BoardSettings& settings, const KernelFiles& files) : settings_(settings), files_(files) {}

    void Add(const std::string& chip, const std::string& sensor, Findings& findings) {
        const std::string base = chip + '/' + sensor;
        const auto value = files_.Number(base + "_input");
        if (!value || files_.Number(base + "_fault").value_or(0) != 0) {
            return;  // a sensor that is not connected
        }
        hottest_ = any_ ? std::max(hottest_, *value) : *value;
        any_ = true;
        const std::string found = SensorName(files_, chip, sensor) + " has " + Celsius(*value);
        const auto critical = Limit(files_, base, "_crit");
        const auto high = Limit(files_, base, "_max");
        judged_ = judged_ || critical || high || settings_.maxTemperature > 0;
        if (critical && *value >= *critical) {
            findings.Add(Fail(found + ", critical from " + Celsius(*critical) + "; check the cooling now"));
        } else if (settings_.maxTemperature > 0 && *value > settings_.maxTemperature * 1000LL) {
            findings.Add(
                Fail(found + ", more than " + std::to_string(settings_.maxTemperature) + " °C; check the cooling"));
        } else if (high && *value >= *high) {
            findings.Add(Warn(found + ", high from " + Celsius(*high) + "; check the cooling"));
        }
    }

    void Finish(Findings& findings) const {
        if (any_ && judged_) {
            findings.Add(Success("hottest sensor " + Celsius(hottest_)));
        } else if (any_) {
            findings.Add(
                Unknown("hottest sensor " + Celsius(hottest_) + ", but none tells its limit; set maxTemperature"));
        }
    }

private:
    const BoardSettings& settings_;
    const KernelFiles& files_;
    long long hottest_ = 0;
    bool any_ = false;
    bool judged_ = false;
};

void LookAtTemperatures(const BoardSettings& settings, const KernelFiles& files, Findings& findings) {
    Temperatures temperatures(settings, files);
    for (const std::string& chip : Chips(files)) {
        for (const std::string& sensor : Sensors(files, chip, "temp")) {
            temperatures.Add(chip, sensor, findings);
        }
    }
    temperatures.Finish(findings);
}

void LookAtFans(const BoardSettings& settings, const KernelFiles& files, Findings& findings) {
    unsigned turning = 0;
    for (const std::string& chip : Chips(files)) {
        for (const std::string& sensor : Sensors(files, chip, "fan")) {
            const std::string base = chip + '/' + sensor;
            const auto speed = files.Number(base + "_input");
            if (!speed) {
                continue;
            }
            const long long least = files.Number(base + "_min").value_or(0);
            turning += *speed > 0 ? 1 : 0;
            if (files.Number(base + "_alarm").value_or(0) != 0 || *speed < least) {
                findings.Add(Fail(SensorName(files, chip, sensor) + " turns at " + std::to_string(*speed) +
                                  "/min, at least " + std::to_string(least) + " wanted; clean or replace the fan"));
            }
        }
    }
    if (turning < settings.fans) {
        findings.Add(Fail(std::to_string(turning) + " of " + std::to_string(settings.fans) +
                          " fans turn; clean or replace the fan"));
    } else if (turning > 0) {
        findings.Add(Success(std::to_string(turning) + (turning == 1 ? " fan turns" : " fans turn")));
    }
}

void LookAtMemory(const KernelFiles& files, Findings& findings) {
    const std::string folder = "/sys/devices/system/edac/mc";
    long long corrected = 0;
    long long uncorrected = 0;
    const std::vector<std::string> controllers = files.Names(folder, "mc");
    for (const std::string& controller : controllers) {
        corrected += files.Number(folder + '/' + controller + "/ce_count").value_or(0);
        uncorrected += files.Number(folder + '/' + controller + "/ue_count").value_or(0);
    }
    if (uncorrected > 0) {
        findings.Add(
            Fail(std::to_string(uncorrected) + " uncorrected memory errors since the start; replace the memory"));
    } else if (corrected > 0) {
        findings.Add(
            Warn(std::to_string(corrected) + " corrected memory errors since the start; replace the memory soon"));
    } else if (!controllers.empty()) {
        findings.Add(Success("no memory errors"));
    }
}

// What the processors count, and the mask of the small boards' firmware.
void LookAtThrottling(const KernelFiles& files, Findings& findings) {
    const std::string folder = "/sys/devices/system/cpu";
    long long throttled = -1;
    for (const std::string& cpu : files.Names(folder, "cpu")) {
        for (const char* kind : {"core", "package"}) {
            const auto count = files.Number(folder + '/' + cpu + "/thermal_throttle/" + kind + "_throttle_count");
            throttled = std::max(throttled, count.value_or(-1));
        }
    }
    if (throttled > 0) {
        findings.Add(Warn("processor throttled " + std::to_string(throttled) +
                          " times by heat since the start; check the cooling"));
    } else if (throttled == 0) {
        findings.Add(Success("never throttled"));
    }
    // The firmware's file has no 0x before its number.
    const auto text = files.Text("/sys/devices/platform/soc/soc:firmware/get_throttled");
    const auto mask = text ? ParseNumber(text->starts_with("0x") ? *text : "0x" + *text) : std::nullopt;
    if (!mask) {
        return;
    }
    constexpr long long kUnderVoltage = 0x1;
    constexpr long long kNow = 0xE;
    if ((*mask & kUnderVoltage) != 0) {
        findings.Add(Fail("the supply's voltage is too low; use a stronger power supply"));
    } else if ((*mask & kNow) != 0) {
        findings.Add(Warn("the processor is throttled now; check the cooling"));
    } else if (*mask != 0) {
        findings.Add(Warn("low voltage or throttling since the start; check power supply and cooling"));
    } else {
        findings.Add(Success("never throttled"));
    }
}

// Whether it is in order, by a flash drive's own estimate, in tenths of its life: 0x01 is new, 0x0a the last tenth,
// 0x0b beyond.
bool LookAtFlash(const KernelFiles& files, const std::string& disk, Findings& findings) {
    const std::string device = "/sys/block/" + disk + "/device";
    const auto life = files.Text(device + "/life_time");
    const long long spare = files.Number(device + "/pre_eol_info").value_or(0);
    long long used = 0;
    for (const std::string& part : {life.value_or("").substr(0, life.value_or("").find(' ')),
                                    life.value_or("").substr(life.value_or("").find(' ') + 1)}) {
        used = std::max(used, ParseNumber(part).value_or(0));
    }
    constexpr long long kUrgent = 3;
    constexpr long long kWarning = 2;
    constexpr long long kBeyond = 11;
    constexpr long long kLast = 9;
    if (spare == kUrgent || used >= kBeyond) {
        findings.Add(Fail(disk + " is worn out; replace it now"));
    } else if (spare == kWarning || used >= kLast) {
        findings.Add(
            Warn(disk + " has used over " + std::to_string((used - 1) * 10) + " % of its life; replace it soon"));
    } else if (used > 0 || spare > 0) {
        return true;
    }
    return false;
}

void LookAtDisks(const KernelFiles& files, Findings& findings) {
    unsigned inOrder = 0;
    for (const std::string& disk : files.Names("/sys/block")) {
        const std::string folder = "/sys/block/" + disk;
        const bool isFlash = disk.starts_with("mmcblk") && disk.find("boot") == std::string::npos;
        bool good = isFlash && LookAtFlash(files, disk, findings);
        const std::string state = files.Text(folder + "/device/state").value_or("");
        if (state == "running" || state == "live") {
            good = true;
        } else if (!state.empty()) {
            findings.Add(Fail("drive " + disk + " is " + state + "; check or replace it"));
        }
        if (const auto errors = files.Number(folder + "/device/ioerr_cnt"); errors.value_or(0) > 0) {
            good = false;
            findings.Add(
                Warn("drive " + disk + " counts " + std::to_string(*errors) + " failed requests; save its data"));
        }
        if (files.Number(folder + "/md/degraded").value_or(0) > 0) {
            findings.Add(Fail("array " + disk + " has lost a drive; replace it"));
        }
        inOrder += good ? 1 : 0;
    }
    if (inOrder > 0) {
        findings.Add(Success(std::to_string(inOrder) + (inOrder == 1 ? " drive in order" : " drives in order")));
    }
}

// How often the processors were interrupted because of an error of the machine: the row is one count for each.
void LookAtMachineChecks(const KernelFiles& files, Findings& findings) {
    static constexpr std::string_view kRow = "MCE:";
    for (const std::string& line : files.Lines("/proc/interrupts")) {
        const std::size_t at = line.find(kRow);
        if (at == std::string::npos) {
            continue;
        }
        long long count = 0;
        std::size_t from = at + kRow.size();
        for (std::size_t begin = line.find_first_not_of(' ', from); begin != std::string::npos;
             begin = line.find_first_not_of(' ', from)) {
            from = std::min(line.find(' ', begin), line.size());
            const auto number = ParseNumber(std::string_view(line).substr(begin, from - begin));
            if (!number) {
                break;
            }
            count += *number;
        }
        if (count > 0) {
            findings.Add(Fail(std::to_string(count) + " machine-check errors since the start; see the kernel's log"));
        } else {
            findings.Add(Success("no machine checks"));
        }
    }
}

// The errors of the expansion bus: a file of counts per device, with their sum in its last line.
void LookAtBus(const KernelFiles& files, Findings& findings) {
    const std::string folder = "/sys/bus/pci/devices";
    for (const std::string& device : files.Names(folder)) {
        for (const char* kind : {"fatal", "nonfatal"}) {
            const std::vector<std::string> lines = files.Lines(folder + '/' + device + "/aer_dev_" + kind);
            const auto count =
                lines.empty() ? std::nullopt : ParseNumber(lines.back().substr(lines.back().find(' ') + 1));
            if (count.value_or(0) > 0) {
                findings.Add(Warn("bus device " + device + " counts " + std::to_string(*count) + ' ' + kind +
                                  " errors; reseat or replace it"));
            }
        }
    }
}

constexpr std::array kItems{
    Item{
        "bsp_mainboard_ft",
        "temperatures and fans against their limits, memory errors, throttling, disk health, hardware errors since the "
        "start",
        [](const Settings& settings) { return CheckMainboard(settings.board, KernelFiles(settings.root)); }},
};

}  // namespace

BoardSettings ReadBoardSettings(const xml::Element& element) {
    static constexpr std::array<std::string_view, 2> kKnown{"maxTemperature", "fans"};
    const xml::Attributes attributes = xml::ReadAttributes(element, kKnown);
    xml::RefuseChildren(element);
    constexpr unsigned kHottest = 150;
    constexpr unsigned kMostFans = 64;
    return {.maxTemperature = xml::ReadNumber(attributes, "maxTemperature", 0, kHottest),
            .fans = xml::ReadNumber(attributes, "fans", 0, kMostFans)};
}

Finding CheckMainboard(const BoardSettings& settings, const KernelFiles& files) {
    Findings findings;
    LookAtTemperatures(settings, files, findings);
    LookAtFans(settings, files, findings);
    LookAtMemory(files, findings);
    LookAtThrottling(files, findings);
    LookAtDisks(files, findings);
    LookAtMachineChecks(files, findings);
    LookAtBus(files, findings);
    return findings.Sum("this machine shows no sensors, no error counts and no state of its drives");
}

std::span<const Item> BoardItems() {
    return kItems;
}

}  // namespace room
