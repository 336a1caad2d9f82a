// The escaping is sd-bus's own.
#include "msg/names.h"

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/msg_rules.h"

namespace kivo::msg {

namespace {

constexpr const char* kTaskPrefix = "/com/kivo/task";

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
    const std::string path = Encode("/", procName);
    return path.empty() ? std::string() : kProcPrefix + path.substr(1);
}

std::string ProcNameOf(const char* busName) {
    const size_t prefix = std::strlen(kProcPrefix);
    if (std::strncmp(busName, kProcPrefix, prefix) != 0) {
        return {};
    }
    const std::string name = Decode("/", (std::string("/") + (busName + prefix)).c_str());
    // A name that escapes more than it must would stand for the same process: only the canonical form is accepted.
    return !name.empty() && BusNameOf(name) == busName ? name : std::string();
}

std::string PathOf(const std::string& taskName) {
    return Encode(kTaskPrefix, taskName);
}

std::string TaskNameOf(const char* path) {
    const std::string name = Decode(kTaskPrefix, path);
    return !name.empty() && PathOf(name) == path ? name : std::string();
}

}  // namespace kivo::msg
