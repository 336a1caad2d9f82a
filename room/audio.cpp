// Not looked at yet.
#include "item.h"

namespace room {
namespace {

Finding NotYet(const Settings& /*settings*/) {
    return Unknown("this version does not look at it yet");
}

constexpr Item kItems[] = {
    {"aud_MicHwLink_ft", "the capture devices: there, and they open", NotYet},
    {"aud_MicAll_ft",
     "every microphone channel in a short recording that is never stored: a signal above the noise floor", NotYet},
    {"aud_SpkQuiet_ft", "the playback device: there, it opens, not muted and not at zero in the mixer", NotYet},
    {"aud_aecCaps_ft", "echo cancellation in the sound devices, or in the software that the room's file names", NotYet},
    {"aud_lineLocal_ft", "the line input for sound of the room: its jack and its device", NotYet},
    {"aud_lineRemote_ft", "the line output for sound of the far end: its jack and its device", NotYet},
};

}  // namespace

std::span<const Item> AudioItems() {
    return kItems;
}

}  // namespace room
