// Escaping and cutting work byte by byte; an escape is written whole or not at all.
#include "log_client/line.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "kivo/om_log_client.h"

namespace kivo::log {

namespace {

std::string TimeText(const timespec& time) {
    tm local{};
    localtime_r(&time.tv_sec, &local);
    std::array<char, 64> text{};
    const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(text.data() + length, text.size() - length, ".%03d", static_cast<int>(time.tv_nsec / 1'000'000));
    return text.data();
}

std::string LevelText(uint8_t level) {
    switch (level) {
        case KIVO_OM_LOG_ERROR:
            return "error";
        case KIVO_OM_LOG_WARNING:
            return "warning";
        case KIVO_OM_LOG_INFO:
            return "info";
        default:
            return "level" + std::to_string(level);
    }
}

// C0 and DEL, and the two bytes of a C1 control in UTF-8 (U+0085 is a line end to some readers).
bool IsControl(std::string_view text, size_t i) {
    const auto byte = [text](size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U; };
    const auto isC1 = [byte](size_t lead) {
        return byte(lead) == 0xC2 && byte(lead + 1) >= 0x80 && byte(lead + 1) < 0xA0;
    };
    return byte(i) < 0x20 || byte(i) == 0x7F || isC1(i) || (i > 0 && isC1(i - 1));
}

std::string Escape(char control) {
    switch (control) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default: {
            constexpr std::string_view kDigits = "0123456789abcdef";
            const auto code = static_cast<unsigned char>(control);
            return {'\\', 'x', kDigits[code / 16U], kDigits[code % 16U]};
        }
    }
}

void AppendEscaped(std::string& line, std::string_view text, size_t limit = std::string::npos) {
    for (size_t i = 0; i < text.size(); ++i) {
        const std::string piece = IsControl(text, i) ? Escape(text[i]) : std::string(1, text[i]);
        if (piece.size() > limit - line.size()) {
            return;
        }
        line += piece;
    }
}

}  // namespace

std::string FormatLine(const Record& record, const Origin& origin, size_t limit) {
    std::string line = TimeText(origin.time) + ' ' + LevelText(record.level) + ' ';
    AppendEscaped(line, origin.client.empty() ? "-" : origin.client);
    line += ' ';
    AppendEscaped(line, record.unit == nullptr ? "-" : record.unit);
    line += '/' + (record.module ? std::to_string(*record.module) : "-") + ':' + std::to_string(record.line);
    line += ' ' + std::to_string(origin.process) + ':' + std::to_string(origin.thread) + ' ';
    line.resize(std::min(line.size(), limit));

    const size_t end = record.text.find_last_not_of("\r\n");
    AppendEscaped(line, record.text.substr(0, end == std::string_view::npos ? 0 : end + 1), limit);
    return line;
}

}  // namespace kivo::log
