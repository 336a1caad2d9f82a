// An item that the file does not name is not served, but may be looked at with --once.
#include "extra.h"

#include <algorithm>
#include <array>

#include <sys/statvfs.h>

#include "common/table.h"
#include "item.h"
#include "items/jobs.h"
#include "settings.h"

namespace room {
namespace {

namespace xml = ominspect::xml;

constexpr unsigned kHundred = 100;
constexpr unsigned kLeast = 10;

constexpr std::array kItems{
    Item{"room_disk_space", "the free space of the disks that the room's file names",
         [](const Settings& settings) { return CheckDiskSpace(settings.extra, KernelFiles(settings.root)); }},
    Item{"room_memory", "the memory that programs can still get",
         [](const Settings& settings) { return CheckMemory(settings.extra, KernelFiles(settings.root)); }},
    Item{"room_updates", "packages of the system that could be upgraded, and a restart that is waited for",
         [](const Settings& settings) { return CheckUpdates(KernelFiles(settings.root)); }, 60, false},
    Item{"room_usb", "the USB devices that the room's file names: there, and not just back again",
         [](const Settings& settings) { return CheckUsb(settings.extra, KernelFiles(settings.root)); }},
    Item{"room_uptime", "how long the computer has been running",
         [](const Settings& settings) { return CheckUptime(settings.extra, KernelFiles(settings.root)); }},
};

DiskSpace ReadDiskSpace(const xml::Element& element) {
    static constexpr std::array<std::string_view, 2> kKnown{"path", "free"};
    constexpr std::size_t kMaxPath = 255;
    const xml::Attributes attributes = xml::ReadAttributes(element, kKnown);
    xml::RefuseChildren(element);
    DiskSpace disk{xml::ReadName(element, attributes, "path", kMaxPath),
                   xml::ReadNumber(attributes, "free", kLeast, kHundred)};
    if (disk.path.front() != '/') {
        throw xml::Mistake{element.GetLineNum(), "path " + xml::Quoted(disk.path) + " must be an absolute path"};
    }
    return disk;
}

// A number of an element that has nothing else.
unsigned ReadOnly(const xml::Element& element, std::string_view attribute, unsigned fallback, unsigned max) {
    const xml::Attributes attributes = xml::ReadAttributes(element, {&attribute, 1});
    xml::RefuseChildren(element);
    return xml::ReadNumber(attributes, attribute, fallback, max);
}

UsbDevice ReadUsbDevice(const xml::Element& element) {
    static constexpr std::array<std::string_view, 2> kKnown{"id", "name"};
    constexpr std::size_t kIdSize = 9;
    constexpr std::size_t kMaxName = 40;
    if (std::string_view(element.Name()) != "Device") {
        throw xml::Mistake{element.GetLineNum(), "unknown element " + xml::Quoted(element.Name()) + " in Usb"};
    }
    const xml::Attributes attributes = xml::ReadAttributes(element, kKnown);
    xml::RefuseChildren(element);
    UsbDevice device{xml::ReadName(element, attributes, "id", kIdSize),
                     xml::ReadOptionalName(element, attributes, "name", kMaxName)};
    const auto isDigit = [](char digit) { return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f'); };
    const bool isId = device.id.size() == kIdSize && device.id[4] == ':' &&
                      std::count_if(device.id.begin(), device.id.end(), isDigit) == kIdSize - 1;
    if (!isId) {
        throw xml::Mistake{element.GetLineNum(), "id " + xml::Quoted(device.id) + " must be like 046d:085c"};
    }
    return device;
}

// The first number of a line; -1 without one.
long long FirstNumber(const std::string& line) {
    const std::size_t begin = std::min(line.find_first_of("0123456789"), line.size());
    return ParseNumber(std::string_view(line).substr(begin, line.find(' ', begin) - begin)).value_or(-1);
}

// Seconds since the computer's start.
std::optional<double> Uptime(const KernelFiles& files) {
    const auto text = files.Text("/proc/uptime");
    const auto seconds = text ? ParseNumber(text->substr(0, text->find_first_of(". "))) : std::nullopt;
    return seconds ? std::optional(static_cast<double>(*seconds)) : std::nullopt;
}

// The device's folder below /sys/bus/usb/devices; empty when it is not there.
std::string FolderOf(const UsbDevice& device, const KernelFiles& files) {
    const std::string all = "/sys/bus/usb/devices/";
    for (const std::string& name : files.Names(all)) {
        std::string folder = all + name;
        const auto vendor = files.Text(folder + "/idVendor");
        const auto product = files.Text(folder + "/idProduct");
        if (vendor && product && *vendor + ':' + *product == device.id) {
            return folder;
        }
    }
    return {};
}

// How many packages the package manager would upgrade by the lists that it has; it fetches no new ones. Nothing when it
// fails.
std::optional<long long> CountUpgrades(const std::string& manager) {
    constexpr std::chrono::seconds kLimit{50};
    static constexpr const char* kScript =
        "list=$(LC_ALL=C \"$0\" --simulate --quiet upgrade) || exit 9; printf '%s\\n' \"$list\" | grep -c '^Inst '; "
        "exit 0";
    std::optional<ominspect::items::CommandOutcome> outcome;
    ominspect::items::Jobs jobs({});
    jobs.Add(
        0, {.argv = {"/bin/sh", "-c", kScript, manager}, .item = "", .argument = "", .limit = kLimit},
        [&outcome](const ominspect::items::CommandOutcome& told) { outcome = told; },
        ominspect::items::Jobs::Clock::now());
    for (jobs.Step(); !outcome; jobs.Step()) {
        jobs.Wait(-1);
    }
    const bool isCounted = outcome->end == ominspect::items::CommandOutcome::End::kExited && outcome->code == 0;
    const std::string& out = outcome->output.out;
    return isCounted ? ParseNumber(out.substr(0, out.find('\n'))) : std::nullopt;
}

}  // namespace

bool ExtraSettings::Names(std::string_view item) const {
    return (item == "room_disk_space" && !disks.empty()) || (item == "room_memory" && available > 0) ||
           (item == "room_updates" && updates) || (item == "room_usb" && !usb.empty()) ||
           (item == "room_uptime" && maxDays > 0);
}

ExtraSettings ReadExtraSettings(const xml::Element& element) {
    constexpr unsigned kMonth = 30;
    constexpr unsigned kMaxDays = 3650;
    (void)xml::ReadAttributes(element, {});
    ExtraSettings settings;
    for (const auto* child : xml::ReadChildren(element)) {
        const std::string_view name = child->Name();
        if (name == "DiskSpace") {
            settings.disks.push_back(ReadDiskSpace(*child));
        } else if (name == "Memory") {
            settings.available = ReadOnly(*child, "available", kLeast, kHundred);
        } else if (name == "Updates") {
            (void)xml::ReadAttributes(*child, {});
            xml::RefuseChildren(*child);
            settings.updates = true;
        } else if (name == "Usb") {
            (void)xml::ReadAttributes(*child, {});
            for (const auto* device : xml::ReadChildren(*child)) {
                settings.usb.push_back(ReadUsbDevice(*device));
            }
        } else if (name == "Uptime") {
            settings.maxDays = ReadOnly(*child, "maxDays", kMonth, kMaxDays);
        } else {
            throw xml::Mistake{child->GetLineNum(), "unknown element " + xml::Quoted(name) + " in Extra"};
        }
    }
    return settings;
}

Finding CheckDiskSpace(const ExtraSettings& settings, const KernelFiles& files) {
    Findings findings;
    for (const DiskSpace& disk : settings.disks) {
        struct statvfs space {};
        if (statvfs(files.At(disk.path).c_str(), &space) != 0 || space.f_blocks == 0) {
            findings.Add(Fail(disk.path + " has no space that could be told; is it mounted?"));
            continue;
        }
        const auto percent = static_cast<unsigned>(space.f_bavail * kHundred / space.f_blocks);
        const std::string found =
            disk.path + " has " + std::to_string(percent) + " % (" +
            ominspect::text::Size(static_cast<double>(space.f_bavail) * static_cast<double>(space.f_frsize)) + ") free";
        findings.Add(percent < disk.free ? Fail(found + ", at least " + std::to_string(disk.free) +
                                                " % wanted; remove what is not needed")
                                         : Success(found));
    }
    return findings.Sum("the room's file names no disk");
}

Finding CheckMemory(const ExtraSettings& settings, const KernelFiles& files) {
    long long total = 0;
    long long available = -1;
    for (const std::string& line : files.Lines("/proc/meminfo")) {
        if (line.starts_with("MemTotal:")) {
            total = FirstNumber(line);
        } else if (line.starts_with("MemAvailable:")) {
            available = FirstNumber(line);
        }
    }
    if (total <= 0 || available < 0) {
        return Unknown("the kernel does not tell how much memory there is");
    }
    const long long percent = available * kHundred / total;
    const std::string found = std::to_string(percent) + " % of the memory is available";
    return percent < settings.available ? Fail(found + ", at least " + std::to_string(settings.available) +
                                               " % wanted; end programs, or restart the computer")
                                        : Success(found);
}

Finding CheckUpdates(const KernelFiles& files) {
    static constexpr const char* kManager = "/usr/bin/apt-get";
    if (files.Exists("/run/reboot-required")) {
        return Warn("upgraded packages wait for a restart; restart the computer");
    }
    if (!files.Exists(kManager)) {
        return Unknown("this system has no apt-get that could tell");
    }
    const auto count = CountUpgrades(files.At(kManager));
    if (!count) {
        return Unknown("apt-get does not tell what could be upgraded; run apt-get --simulate upgrade");
    }
    return *count > 0 ? Warn(std::to_string(*count) + " packages could be upgraded; run apt-get upgrade")
                      : Success("nothing could be upgraded, by the lists that are here");
}

Finding CheckUsb(const ExtraSettings& settings, const KernelFiles& files) {
    // A device that came back within the last ten minutes of a long uptime may drop out again.
    constexpr double kLongRun = 3600;
    constexpr long long kJustBackMs = 600000;
    constexpr long long kMinuteMs = 60000;
    const double uptime = Uptime(files).value_or(0);
    Findings findings;
    for (const UsbDevice& device : settings.usb) {
        const std::string name = device.name.empty() ? device.id : device.name + " (" + device.id + ")";
        const std::string folder = FolderOf(device, files);
        if (folder.empty()) {
            findings.Add(Fail(name + " is not there; check its cable"));
            continue;
        }
        const long long connected = files.Number(folder + "/power/connected_duration").value_or(kJustBackMs);
        if (uptime >= kLongRun && connected < kJustBackMs) {
            findings.Add(Warn(name + " came " + std::to_string(connected / kMinuteMs) +
                              " min ago; check its cable if nobody plugged it in"));
        } else {
            findings.Add(Success(name + " is there"));
        }
    }
    return findings.Sum("the room's file names no USB device");
}

Finding CheckUptime(const ExtraSettings& settings, const KernelFiles& files) {
    constexpr double kDay = 86400;
    const auto seconds = Uptime(files);
    if (!seconds) {
        return Unknown("the kernel does not tell when it started");
    }
    const auto days = static_cast<unsigned>(*seconds / kDay);
    const std::string found = "up for " + std::to_string(days) + (days == 1 ? " day" : " days");
    return settings.maxDays > 0 && days > settings.maxDays
               ? Warn(found + ", more than " + std::to_string(settings.maxDays) +
                      "; restart the computer when it is free")
               : Success(found);
}

std::span<const Item> ExtraItems() {
    return kItems;
}

}  // namespace room
