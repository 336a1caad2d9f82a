// Items that rooms need and the server's list lacks. Only those that the room's file names are served.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/xml_reader.h"
#include "finding.h"
#include "kernel_files.h"

namespace room {

struct DiskSpace {
    std::string path;
    unsigned free = 0;  // the least, in percent
};

struct UsbDevice {
    std::string id;  // "046d:085c"
    std::string name;
};

//   <Extra>
//       <DiskSpace path="/" free="10"/>
//       <Memory available="10"/>
//       <Updates/>
//       <Usb><Device id="046d:085c" name="camera"/></Usb>
//       <Uptime maxDays="30"/>
//   </Extra>
struct ExtraSettings {
    std::vector<DiskSpace> disks;
    unsigned available = 0;  // memory, in percent; 0: not looked at
    bool updates = false;
    std::vector<UsbDevice> usb;
    unsigned maxDays = 0;  // 0: not looked at

    // Whether the item was asked for.
    [[nodiscard]] bool Names(std::string_view item) const;
};

ExtraSettings ReadExtraSettings(const ominspect::xml::Element& element);

Finding CheckDiskSpace(const ExtraSettings& settings, const KernelFiles& files);
Finding CheckMemory(const ExtraSettings& settings, const KernelFiles& files);
Finding CheckUpdates(const KernelFiles& files);
Finding CheckUsb(const ExtraSettings& settings, const KernelFiles& files);
Finding CheckUptime(const ExtraSettings& settings, const KernelFiles& files);

}  // namespace room
