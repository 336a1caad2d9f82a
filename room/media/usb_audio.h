// What a USB device says of its sound in its descriptors.
#pragma once

#include <cstdint>
#include <span>

namespace room {

// Whether one of its terminals is a speakerphone that cancels echoes. The bytes are the device's own, and may be
// anything.
bool CancelsEcho(std::span<const std::uint8_t> descriptors);

}  // namespace room
