// Text from outside, made safe: one walk over the characters serves all ways of showing them.
#include "text/text.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace ominspect::text {
namespace {

std::uint32_t ByteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

// What the first byte of a character says: its length, the smallest code point that needs it, its payload bits.
struct Lead {
    std::size_t length;
    std::uint32_t smallest;
    std::uint32_t bits;
};

Lead ReadLead(std::uint32_t byte) {
    if (byte < 0x80) {
        return {1, 0, byte};
    }
    if ((byte & 0xE0U) == 0xC0) {
        return {2, 0x80, byte & 0x1FU};
    }
    if ((byte & 0xF0U) == 0xE0) {
        return {3, 0x800, byte & 0x0FU};
    }
    if ((byte & 0xF8U) == 0xF0) {
        return {4, 0x10000, byte & 0x07U};
    }
    return {0, 0, 0};
}

// Reads the character at `at`; length 0 when there is none.
std::size_t Read(std::string_view text, std::size_t at, std::uint32_t& codePoint) {
    if (at >= text.size()) {
        return 0;
    }
    const Lead lead = ReadLead(ByteAt(text, at));
    if (lead.length == 0 || text.size() - at < lead.length) {
        return 0;
    }
    codePoint = lead.bits;
    for (std::size_t i = 1; i < lead.length; ++i) {
        const std::uint32_t byte = ByteAt(text, at + i);
        if ((byte & 0xC0U) != 0x80) {
            return 0;
        }
        codePoint = codePoint << 6U | (byte & 0x3FU);
    }
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    return codePoint < lead.smallest || codePoint > 0x10FFFF || surrogate ? 0 : lead.length;
}

bool IsControl(std::uint32_t codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint <= 0x9F) || codePoint == 0x200E || codePoint == 0x200F ||
           (codePoint >= 0x2028 && codePoint <= 0x202E) || (codePoint >= 0x2066 && codePoint <= 0x2069);
}

// Calls onCharacter(bytes, codePoint) or onStray(byte) for every part of the text, in order.
template <typename OnCharacter, typename OnStray>
void Walk(std::string_view text, OnCharacter onCharacter, OnStray onStray) {
    for (std::size_t at = 0; at < text.size();) {
        std::uint32_t codePoint = 0;
        const std::size_t length = Read(text, at, codePoint);
        if (length == 0) {
            onStray(text[at]);
            ++at;
        } else {
            onCharacter(text.substr(at, length), codePoint);
            at += length;
        }
    }
}

std::string Formatted(const char* format, std::uint32_t number) {
    std::array<char, 16> out{};
    (void)std::snprintf(out.data(), out.size(), format, number);
    return out.data();
}

std::string EscapedControl(std::uint32_t codePoint) {
    switch (codePoint) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return Formatted("\\u{%X}", codePoint);
    }
}

}  // namespace

std::size_t CharacterLength(std::string_view text, std::size_t at) {
    std::uint32_t codePoint = 0;
    return Read(text, at, codePoint);
}

bool IsPlain(std::string_view text) {
    bool plain = true;
    Walk(
        text, [&](std::string_view /*bytes*/, std::uint32_t codePoint) { plain = plain && !IsControl(codePoint); },
        [&](char /*byte*/) { plain = false; });
    return plain;
}

std::string ToUtf8(std::string_view text) {
    std::string out;
    Walk(
        text, [&](std::string_view bytes, std::uint32_t /*codePoint*/) { out += bytes; },
        [&](char /*byte*/) { out += "\xEF\xBF\xBD"; });
    return out;
}

std::string Escaped(std::string_view text) {
    std::string out;
    Walk(
        text,
        [&](std::string_view bytes, std::uint32_t codePoint) {
            if (codePoint == '\\') {
                out += "\\\\";
            } else if (IsControl(codePoint)) {
                out += EscapedControl(codePoint);
            } else {
                out += bytes;
            }
        },
        [&](char byte) { out += Formatted("\\x%02x", static_cast<unsigned char>(byte)); });
    return out;
}

std::string EscapedJson(std::string_view json) {
    std::string out;
    Walk(
        json,
        [&](std::string_view bytes, std::uint32_t codePoint) {
            if (codePoint >= 0x7F && IsControl(codePoint)) {
                out += Formatted("\\u%04x", codePoint);
            } else {
                out += bytes;
            }
        },
        [&](char byte) { out += byte; });
    return out;
}

std::string OneLine(std::string_view text) {
    std::string out;
    Walk(
        text,
        [&](std::string_view bytes, std::uint32_t codePoint) {
            out += IsControl(codePoint) ? std::string_view(" ") : bytes;
        },
        [&](char /*byte*/) { out += '?'; });
    return out;
}

std::string_view Cut(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) {
        return text;
    }
    std::size_t end = maxBytes;
    // Steps back over the continuation bytes of a character that would be cut; never more than three.
    while (end > 0 && maxBytes - end < 3 && (ByteAt(text, end) & 0xC0U) == 0x80) {
        --end;
    }
    return text.substr(0, end);
}

}  // namespace ominspect::text
