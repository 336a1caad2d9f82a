// The payload of a group request: texts one after the other, and the group that they name.
#include <algorithm>
#include <cstring>
#include <string>

#include "handlers/group_catalogue.h"
#include "handlers/payload.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::vector<unsigned char> payload(data, data + size);
    TagMsgBlock message{};
    message.data = payload.data();
    message.dataLen = static_cast<std::uint32_t>(size);
    const std::vector<std::string> texts = PayloadTexts(message);
    std::size_t bytes = 0;
    for (const std::string& text : texts) {
        fuzz::Check(!text.empty() && text.find('\0') == std::string::npos);
        fuzz::Check(std::memcmp(text.data(), payload.data() + bytes, text.size()) == 0);
        bytes += text.size() + 1;
    }
    fuzz::Check(bytes <= size + 1);
    const std::vector<std::string> groups = GetGroupList();
    fuzz::Check(std::find(groups.begin(), groups.end(), GetGroupName(texts)) != groups.end());
    return 0;
}
