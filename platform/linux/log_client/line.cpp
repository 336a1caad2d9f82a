// Escaping and cutting work byte by byte; an escape is written whole or not at all.
#include "log_client/line.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "kivo/om_log_client.h"

namespace kivo::log {

namespace {

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
    for (size_t begin = 0; begin < text.size();) {
        size_t end = begin;
        while (end < text.size() && !IsControl(text, end)) {
            ++end;
        }
        const size_t room = limit - line.size();
        line += text.substr(begin, std::min(end - begin, room));
        if (end - begin > room || end == text.size()) {
            return;
        }
        const std::string piece = Escape(text[end]);
        if (piece.size() > limit - line.size()) {
            return;
        }
        line += piece;
        begin = end + 1;
    }
}

template <typename Number>
void AppendNumber(std::string& line, Number number) {
    std::array<char, 24> digits{};
    line.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

}  // namespace

std::string_view TimeText::Of(const timespec& time) {
    if (second_ != time.tv_sec) {
        tm local{};
        localtime_r(&time.tv_sec, &local);
        length_ = std::strftime(text_.data(), text_.size(), "%Y-%m-%d %H:%M:%S.", &local);
        second_ = time.tv_sec;
    }
    const auto milliseconds = static_cast<unsigned>(time.tv_nsec / 1'000'000);
    char* const digits = text_.data() + length_;
    digits[0] = static_cast<char>('0' + milliseconds / 100 % 10);
    digits[1] = static_cast<char>('0' + milliseconds / 10 % 10);
    digits[2] = static_cast<char>('0' + milliseconds % 10);
    return {text_.data(), length_ + 3};
}

void FormatLine(std::string& line, const Record& record, const Origin& origin, size_t limit) {
    line.assign(origin.time);
    line += ' ';
    line += LevelText(record.level);
    line += ' ';
    AppendEscaped(line, origin.client.empty() ? "-" : origin.client);
    line += ' ';
    AppendEscaped(line, record.unit == nullptr ? "-" : record.unit);
    line += '/';
    if (record.module) {
        AppendNumber(line, *record.module);
    } else {
        line += '-';
    }
    line += ':';
    AppendNumber(line, record.line);
    line += ' ';
    AppendNumber(line, origin.process);
    line += ':';
    AppendNumber(line, origin.thread);
    line += ' ';
    line.resize(std::min(line.size(), limit));

    const size_t end = record.text.find_last_not_of("\r\n");
    AppendEscaped(line, record.text.substr(0, end == std::string_view::npos ? 0 : end + 1), limit);
}

}  // namespace kivo::log
