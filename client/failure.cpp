// All texts about the bus, the server and the user's rights are here, so that they read the same everywhere.
#include "failure.h"

#include <pwd.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "kivo/os_msg.h"
#include "ominspect/messages.h"

namespace ominspect::client {
namespace {

std::string At() {
    return std::string(" at ") + OsMsgBusAddress();
}

std::string Server() {
    return "\"" OM_INSPECT_PROC_NAME "\"";
}

// Appends only: GCC 12 takes the insertion in front of a temporary for an overlapping copy, and warns.
std::string Quoted(std::string_view text) {
    return std::string(1, '"').append(text).append(1, '"');
}

// The user whose rights count on the bus: "name" (id), or the id alone.
std::string User() {
    const uid_t uid = geteuid();
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    (void)getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    const std::string id = std::to_string(uid);
    return found != nullptr ? Quoted(entry.pw_name) + " (" + id + ")" : id;
}

// `what` is what the user may not do, and the members of `group` may.
Error Denied(const std::string& what, const std::string& group) {
    return {ErrorCode::kDenied, "access denied: the bus" + At() + " does not let user " + User() + " " + what +
                                    "; add the user to the group " + Quoted(group) + " and log in again"};
}

// As the shipped bus policy has it.
constexpr const char* kAskers = "ominspect";
constexpr const char* kOwners = "ominspect-owner";

Error Plain(ErrorCode code, std::uint32_t result) {
    return {code, OsMsgResultText(result)};
}

}  // namespace

Error SendError(std::uint32_t code) {
    switch (code) {
        case OS_MSG_ERR_PARAM:
            return Plain(ErrorCode::kInvalidArgument, code);
        case OS_MSG_ERR_NOT_ATTACHED:
        case OS_MSG_ERR_NO_BUS:
            return BusLostError();
        case OS_MSG_ERR_ABSENT:
            return {ErrorCode::kServerAbsent, "server absent: no process " + Server() + " on the bus" + At()};
        case OS_MSG_ERR_NO_TASK:
            return {ErrorCode::kServerAbsent, "server absent: the process " + Server() + " on the bus" + At() +
                                                  " has no task \"" OM_INSPECT_TASK_NAME "\""};
        case OS_MSG_ERR_DIED:
            return {ErrorCode::kServerAbsent,
                    "server absent: the process " + Server() + " left the bus" + At() + " while it was asked"};
        case OS_MSG_ERR_TIMEOUT:
            return Plain(ErrorCode::kTimeLimit, code);
        case OS_MSG_ERR_QUEUE_FULL:
            return Plain(ErrorCode::kRefused, code);
        case OS_MSG_ERR_DENIED:
            return Denied("speak to the process " + Server(), kAskers);
        default:
            return Plain(ErrorCode::kInternal, code);
    }
}

Error JoinError(std::uint32_t code, std::string_view processName) {
    const std::string name = Quoted(processName);
    switch (code) {
        case OS_MSG_ERR_PARAM:
            return {ErrorCode::kInvalidArgument, "the process name " + name + " is not of 1 to 15 bytes of UTF-8"};
        case OS_MSG_ERR_ATTACHED:
            return Plain(ErrorCode::kAlreadyOpen, code);
        case OS_MSG_ERR_NAME_TAKEN:
            return {ErrorCode::kAlreadyOpen, "another process is " + name + " on the bus" + At()};
        case OS_MSG_ERR_NO_BUS:
            return {ErrorCode::kBusUnreachable, "bus unreachable" + At() + ": " + OsMsgJoinFailure()};
        case OS_MSG_ERR_DENIED:
            return Denied("join as the process " + name, processName.starts_with("ic-") ? kAskers : kOwners);
        default:
            return Plain(ErrorCode::kInternal, code);
    }
}

Error BusLostError() {
    return {ErrorCode::kBusUnreachable, "bus unreachable" + At() + ": the connection was lost"};
}

Error RestartError() {
    return {ErrorCode::kServerAbsent, "server absent: it restarted and forgot the run"};
}

}  // namespace ominspect::client
