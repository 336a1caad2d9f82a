// The settings of the room's call program, judged as the items' names say.
#pragma once

#include <string>
#include <string_view>

#include "call/call_settings.h"
#include "finding.h"

namespace room {

// The value of a key in a text of lines "key = value" or "key: value"; sections "[...]" and lines that begin with # or
// ; are passed over, quotes around the value are taken off. Pure.
enum class KeyState { Found, Absent, Twice };
struct KeyValue {
    KeyState state;
    std::string value;
};
KeyValue FindKey(std::string_view text, std::string_view key);

Finding CheckDoNotDisturb(const CallSettings& settings);
Finding CheckAutoAnswerMuted(const CallSettings& settings);
Finding CheckDefaultBandwidth(const CallSettings& settings);
Finding CheckMaxIncomingBandwidth(const CallSettings& settings);

}  // namespace room
