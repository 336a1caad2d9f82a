// A file with a user and a password. A mistake has a text.
#include "call/credentials.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto settings = room::ParseCredentials({reinterpret_cast<const char*>(data), size});
    if (!settings && settings.Failure().text.empty()) {
        __builtin_trap();
    }
    return 0;
}
