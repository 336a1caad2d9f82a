// What a SIP server sends: as a stream, and as one message.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "call/sip_options.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kMaxSize = 65536;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const room::SipFrame frame = room::FrameSipMessage(bytes, kMaxSize);
    if (frame.framing == room::Framing::Whole) {
        if (frame.start > size || frame.length > size - frame.start) {
            __builtin_trap();
        }
        (void)room::ParseSipReply(bytes.substr(frame.start, frame.length));
    }
    const auto reply = room::ParseSipReply(bytes);
    if (reply && (reply->status < 100 || reply->status > 699)) {
        __builtin_trap();
    }
    return 0;
}
