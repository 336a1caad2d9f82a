// The escaping is sd-bus's own.
#include "msg/names.h"

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "common/msg_rules.h"

namespace kivo::msg {

namespace {

constexpr const char* kTaskPrefix = "/com/kivo/task";

// Requesters' names lie behind a dot of their own, since a bus's policy can tell names apart by what is before a dot
// only.
constexpr std::string_view kRequester = "ic-";
constexpr std::string_view kRequesterPart = "ic.";

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};

std::string Encode(const char* prefix, const std::string& name) {
    char* path = nullptr;
    if (sd_bus_path_encode(prefix, name.c_str(), &path) < 0) {
        return {};
    }
    const std::unique_ptr<char, FreeText> owner(path);
    return path;
}

std::string Decode(const char* prefix, const char* path) {
    char* name = nullptr;
    if (sd_bus_path_decode(path, prefix, &name) <= 0) {
        return {};
    }
    const std::unique_ptr<char, FreeText> owner(name);
    return IsValidName(name) ? name : std::string();
}

}  // namespace

std::string BusNameOf(const std::string& procName) {
    const bool isRequester = procName.starts_with(kRequester) && procName.size() > kRequester.size();
    const std::string path = Encode("/", isRequester ? procName.substr(kRequester.size()) : procName);
    if (path.empty()) {
        return {};
    }
    return std::string(kProcPrefix).append(isRequester ? kRequesterPart : "").append(path, 1);
}

std::string ProcNameOf(const char* busName) {
    const size_t prefix = std::strlen(kProcPrefix);
    if (std::strncmp(busName, kProcPrefix, prefix) != 0) {
        return {};
    }
    std::string_view escaped = busName + prefix;
    const bool isRequester = escaped.starts_with(kRequesterPart);
    if (isRequester) {
        escaped.remove_prefix(kRequesterPart.size());
    }
    std::string name = Decode("/", std::string("/").append(escaped).c_str());
    if (isRequester && !name.empty()) {
        name.insert(0, kRequester);
    }
    // A name that escapes more than it must would stand for the same process: only the canonical form is accepted.
    return IsValidName(name) && BusNameOf(name) == busName ? name : std::string();
}

std::string PathOf(const std::string& taskName) {
    return Encode(kTaskPrefix, taskName);
}

std::string TaskNameOf(const char* path) {
    const std::string name = Decode(kTaskPrefix, path);
    return !name.empty() && PathOf(name) == path ? name : std::string();
}

}  // namespace kivo::msg
