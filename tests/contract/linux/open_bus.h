// A bus that lets every message through, also replies that nobody asked for: the shipped policies do not.
#pragma once

#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace support {

inline constexpr const char* kOpenBus =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=/tmp</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*" eavesdrop="true"/>
  </policy>
</busconfig>
)";

class OpenBus {
public:
    OpenBus() : bus_((WriteFile(folder_ / "bus.conf", kOpenBus), folder_ / "bus.conf")) {}

private:
    const TempFolder folder_;
    const PrivateBus bus_;
};

}  // namespace support
