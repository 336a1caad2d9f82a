// A datagram of any gatekeeper.
#include <cstddef>
#include <cstdint>

#include "call/ras.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::uint16_t kSequence = 0x1234;
    (void)room::ParseGatekeeperReply({reinterpret_cast<const char*>(data), size}, kSequence);
    return 0;
}
