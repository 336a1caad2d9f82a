// The descriptors of a USB device.
#include "media/usb_audio.h"

#include <cstddef>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    (void)room::CancelsEcho({data, size});
    return 0;
}
