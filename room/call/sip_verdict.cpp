// Any final answer proves that a SIP element took the request and worked on it; what it says decides the rest (RFC
// 3261, 21):
//
// clang-format off
//   2xx, 3xx                       good
//   401, 407                       good: it wants to know who asks
//   405, 501                       good: it knows SIP, and has no use for OPTIONS
//   404, 410, 484, 485, 604        about the user, not about the server: good, but "warn" when the room's own was asked for
//   480, 486, 487, 600, 603, 606   about what is behind the server at the moment: good
//   403                            it refuses this computer: "warn"
//   other 4xx                      it does not understand the request, or did not get through (408, 483): "warn"
//   other 5xx                      it says that it cannot serve: "fail"
// clang-format on
#include "call/sip_verdict.h"

#include <algorithm>
#include <array>

namespace room {
namespace {

// What is shown of the reason, which anybody may have written.
constexpr std::size_t kMaxReason = 40;

template <std::size_t Size>
bool IsOneOf(int status, const std::array<int, Size>& list) {
    return std::find(list.begin(), list.end(), status) != list.end();
}

constexpr std::array kAlive{401, 405, 407, 480, 486, 487, 501};
constexpr std::array kOfTheUser{404, 410, 484, 485, 604};

}  // namespace

Finding JudgeSipStatus(int status, const std::string& reason, const std::string& server, bool hasUser) {
    const std::string shown = reason.substr(0, kMaxReason);
    const std::string text = server + " answers " + std::to_string(status) + (shown.empty() ? "" : " " + shown);
    if (IsOneOf(status, kOfTheUser)) {
        return hasUser ? Warn(text + "; check the room's user") : Success(text);
    }
    if (status < 400 || status >= 600 || IsOneOf(status, kAlive)) {
        return Success(text);
    }
    if (status >= 500) {
        return Fail(text + "; the server cannot serve now: check it");
    }
    return Warn(text + (status == 403 ? "; it refuses this room: check its rules" : "; check the server's settings"));
}

}  // namespace room
