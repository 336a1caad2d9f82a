// One walk over the characters serves all ways of showing them.
#include "common/text.h"

#include <array>
#include <cstdint>
#include <cstdio>

#include <utf8proc.h>

namespace ominspect::text {
namespace {

// A character, or a stray byte.
struct Part {
    std::string_view bytes;
    std::int32_t codePoint;

    bool IsStray() const { return codePoint < 0; }

    bool IsControl() const {
        return (codePoint >= 0 && codePoint < 0x20) || (codePoint >= 0x7F && codePoint <= 0x9F) ||
               codePoint == 0x200E || codePoint == 0x200F || (codePoint >= 0x2028 && codePoint <= 0x202E) ||
               (codePoint >= 0x2066 && codePoint <= 0x2069);
    }

    std::size_t Width() const { return IsStray() ? 1 : static_cast<std::size_t>(utf8proc_charwidth(codePoint)); }

    // Its number, written with a format for one unsigned.
    std::string Formatted(const char* format) const {
        std::array<char, 16> out{};
        const unsigned number = IsStray() ? static_cast<unsigned char>(bytes[0]) : static_cast<unsigned>(codePoint);
        (void)std::snprintf(out.data(), out.size(), format, number);
        return out.data();
    }
};

Part FirstPart(std::string_view text) {
    std::int32_t codePoint = -1;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const auto length = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
    return length > 0 ? Part{text.substr(0, static_cast<std::size_t>(length)), codePoint} : Part{text.substr(0, 1), -1};
}

// Calls `take` with every part of the text, in order.
template <typename Take>
void Walk(std::string_view text, Take take) {
    while (!text.empty()) {
        const Part part = FirstPart(text);
        take(part);
        text.remove_prefix(part.bytes.size());
    }
}

// The text with `put` in place of every part beyond ASCII, and of DEL. What is before it is taken over at once: most
// texts hold nothing else.
template <typename Put>
std::string Rewritten(std::string_view text, Put put) {
    std::string out;
    while (!text.empty()) {
        std::size_t size = 0;
        while (size < text.size() && static_cast<unsigned char>(text[size]) < 0x7F) {
            ++size;
        }
        out += text.substr(0, size);
        text.remove_prefix(size);
        if (!text.empty()) {
            const Part part = FirstPart(text);
            put(out, part);
            text.remove_prefix(part.bytes.size());
        }
    }
    return out;
}

// The longest beginning of whole parts whose costs do not exceed `room` together.
template <typename Cost>
std::string_view Beginning(std::string_view text, std::size_t room, Cost cost) {
    std::size_t size = 0;
    while (size < text.size()) {
        const Part part = FirstPart(text.substr(size));
        if (cost(part) > room) {
            break;
        }
        room -= cost(part);
        size += part.bytes.size();
    }
    return text.substr(0, size);
}

std::string EscapedControl(const Part& part) {
    switch (part.codePoint) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return part.Formatted("\\u{%X}");
    }
}

}  // namespace

bool IsPlain(std::string_view text) {
    bool plain = true;
    Walk(text, [&](const Part& part) { plain = plain && !part.IsStray() && !part.IsControl(); });
    return plain;
}

std::string ToUtf8(std::string_view text) {
    return Rewritten(text,
                     [](std::string& out, const Part& part) { out += part.IsStray() ? "\xEF\xBF\xBD" : part.bytes; });
}

std::string Escaped(std::string_view text) {
    std::string out;
    Walk(text, [&](const Part& part) {
        if (part.IsStray()) {
            out += part.Formatted("\\x%02x");
        } else if (part.codePoint == '\\') {
            out += "\\\\";
        } else if (part.IsControl()) {
            out += EscapedControl(part);
        } else {
            out += part.bytes;
        }
    });
    return out;
}

std::string EscapedJson(std::string_view json) {
    return Rewritten(json, [](std::string& out, const Part& part) {
        if (part.IsControl()) {
            out += part.Formatted("\\u%04x");
        } else {
            out += part.bytes;
        }
    });
}

std::string OneLine(std::string_view text) {
    std::string out;
    Walk(text, [&](const Part& part) {
        if (part.IsStray()) {
            out += '?';
        } else if (part.IsControl()) {
            out += ' ';
        } else {
            out += part.bytes;
        }
    });
    return out;
}

std::string_view Cut(std::string_view text, std::size_t maxBytes) {
    return Beginning(text, maxBytes, [](const Part& part) { return part.bytes.size(); });
}

std::size_t WidthOf(std::string_view text) {
    std::size_t width = 0;
    Walk(text, [&](const Part& part) { width += part.Width(); });
    return width;
}

std::string_view CutToWidth(std::string_view text, std::size_t width) {
    return Beginning(text, width, [](const Part& part) { return part.Width(); });
}

}  // namespace ominspect::text
