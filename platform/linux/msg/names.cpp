// Process and task names: their rules and their escaped forms.
#include "msg/names.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace kivo::msg {

namespace {

constexpr const char* kTaskPrefix = "/com/kivo/task";

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};

// Bytes that follow the first byte of a UTF-8 sequence; -1 for a byte that can start none (RFC 3629).
int FollowersOf(unsigned char first) {
    if (first < 0x80) {
        return 0;
    }
    if (first >= 0xc2 && first <= 0xdf) {
        return 1;
    }
    if (first >= 0xe0 && first <= 0xef) {
        return 2;
    }
    if (first >= 0xf0 && first <= 0xf4) {
        return 3;
    }
    return -1;
}

// Overlong forms, surrogates and values above U+10FFFF show in the second byte.
bool SecondByteFits(unsigned char first, unsigned char second) {
    switch (first) {
        case 0xe0:
            return second >= 0xa0;
        case 0xed:
            return second <= 0x9f;
        case 0xf0:
            return second >= 0x90;
        case 0xf4:
            return second <= 0x8f;
        default:
            return true;
    }
}

bool IsUtf8(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i]);
        const int followers = FollowersOf(first);
        if (followers < 0 || text.size() - i <= static_cast<size_t>(followers)) {
            return false;
        }
        for (int k = 1; k <= followers; ++k) {
            const auto next = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
            if ((next & 0xc0) != 0x80 || (k == 1 && !SecondByteFits(first, next))) {
                return false;
            }
        }
        i += static_cast<size_t>(followers) + 1;
    }
    return true;
}

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

std::string ReadName(const char* field, size_t size) {
    std::string name(field, strnlen(field, size));
    return IsValidName(name) ? name : std::string();
}

bool IsValidName(std::string_view name) {
    return !name.empty() && name.size() < OS_MSG_NAME_SIZE && name.find('\0') == std::string_view::npos && IsUtf8(name);
}

void WriteName(char (&field)[OS_MSG_NAME_SIZE], std::string_view name) {
    std::fill(std::begin(field), std::end(field), '\0');
    std::copy_n(name.begin(), std::min<size_t>(name.size(), OS_MSG_NAME_SIZE - 1), std::begin(field));
}

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
    // Escaping more than needed would give a second bus name to the same process name: nobody may pass by it.
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
