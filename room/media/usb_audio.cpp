// Descriptors follow each other; each begins with its length and its kind.
#include "media/usb_audio.h"

namespace room {

bool CancelsEcho(std::span<const std::uint8_t> descriptors) {
    constexpr std::uint8_t kInterface = 0x04;
    constexpr std::uint8_t kOfClass = 0x24;
    constexpr std::uint8_t kAudio = 0x01;
    constexpr std::uint8_t kControl = 0x01;
    constexpr std::uint8_t kInputTerminal = 0x02;
    constexpr std::uint8_t kOutputTerminal = 0x03;
    constexpr unsigned kEchoCanceling = 0x0405;
    constexpr std::size_t kLeastInterface = 9;
    constexpr std::size_t kLeastTerminal = 6;
    bool isAudioControl = false;
    while (descriptors.size() >= 2) {
        const std::size_t length = descriptors[0];
        if (length < 2 || length > descriptors.size()) {
            return false;
        }
        const std::span<const std::uint8_t> one = descriptors.first(length);
        descriptors = descriptors.subspan(length);
        if (one[1] == kInterface && length >= kLeastInterface) {
            isAudioControl = one[5] == kAudio && one[6] == kControl;
        } else if (isAudioControl && one[1] == kOfClass && length >= kLeastTerminal &&
                   (one[2] == kInputTerminal || one[2] == kOutputTerminal) &&
                   (one[4] | one[5] << 8) == static_cast<int>(kEchoCanceling)) {
            return true;
        }
    }
    return false;
}

}  // namespace room
