#include "mqtt/topics.h"

#include <algorithm>

#include "common/text.h"

namespace ominspect::gateway::mqtt {
namespace {

constexpr std::size_t kMostTopic = 512;

std::size_t LengthBy(unsigned char first) {
    return first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

// U+FDD0 to U+FDEF, and the last two of each plane; brokers may refuse them. `character` is well-formed.
bool IsNoncharacter(std::string_view character) {
    if (character.size() < 3) {
        return false;
    }
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(character[i]); };
    const bool isArabic = byte(0) == 0xEF && byte(1) == 0xB7 && byte(2) >= 0x90 && byte(2) <= 0xAF;
    const std::size_t last = character.size() - 1;
    const bool isLastTwo = byte(last) >= 0xBE && byte(last - 1) == 0xBF &&
                           (character.size() == 3 ? byte(0) == 0xEF : (byte(1) & 0x0FU) == 0x0FU);
    return isArabic || isLastTwo;
}

bool IsLegal(std::string_view character) {
    constexpr std::string_view kOwn = "/+#%";
    return kOwn.find(character) == std::string_view::npos && text::IsPlain(character) && !IsNoncharacter(character);
}

void Escape(std::string& level, char byte) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    level += '%';
    level += kDigits[value >> 4U];
    level += kDigits[value & 15U];
}

}  // namespace

std::string EscapeLevel(std::string_view name) {
    std::string level;
    for (std::size_t at = 0; at < name.size();) {
        const auto character = name.substr(at, LengthBy(static_cast<unsigned char>(name[at])));
        if (IsLegal(character)) {
            level += character;
            at += character.size();
        } else {
            Escape(level, name[at++]);
        }
    }
    return level.empty() ? "%" : level;
}

bool Topics::IsReply(std::string_view topic) const {
    const std::string reply = root_ + "reply/";
    return topic.starts_with(reply) && topic.size() > reply.size() && topic.size() <= kMostTopic &&
           topic.find_first_of("+#") == std::string_view::npos && text::IsPlain(topic);
}

}  // namespace ominspect::gateway::mqtt
