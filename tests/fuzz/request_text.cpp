// Request texts: what the server reads out of any, and that it reads what the requesters' library writes.
#include <array>
#include <cstring>
#include <string>

#include "handlers/json.h"
#include "input.h"
#include "wire.h"

namespace {

// Whatever the text is, the value fits and ends, or nothing is touched.
void Read(const std::string& text, std::uint32_t size) {
    const JsonText json{text.c_str(), static_cast<std::uint32_t>(text.size())};
    for (const char* key : {"name", "cmd"}) {
        std::vector<char> out(size, 'x');
        const bool isThere = JsonGetValue(&json, key, out.data(), size) == 0;
        fuzz::Check(isThere ? std::memchr(out.data(), 0, size) != nullptr : out == std::vector<char>(size, 'x'));
    }
}

void WriteAndRead(std::string_view item, std::string_view cmd) {
    const auto text = ominspect::client::wire::EncodeRequest({std::string(item), std::string(cmd)});
    if (!text) {
        return;
    }
    const JsonText json{text->c_str(), static_cast<std::uint32_t>(text->size())};
    std::array<char, 128> out{};
    fuzz::Check(JsonGetValue(&json, "name", out.data(), 32) == 0 && item == out.data());
    fuzz::Check(JsonGetValue(&json, "cmd", out.data(), 128) == 0 && cmd == out.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Read(text, 32);
    Read(text, 1);
    const std::size_t middle = text.find('\n');
    WriteAndRead(text.substr(0, middle), middle == std::string::npos ? "" : text.substr(middle + 1));
    return 0;
}
