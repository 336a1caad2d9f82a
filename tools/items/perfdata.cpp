// Reading goes on behind a bad pair, since plugins are many and some are careless.
#include "items/perfdata.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include "common/text.h"
#include "ominspect/perfdata.h"

namespace ominspect::items {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// value, warn, crit, min, max
constexpr std::size_t kFields = 5;

std::size_t EndOfWord(std::string_view data) {
    return std::min(data.find_first_of(kBlanks), data.size());
}

bool IsDigit(char letter) {
    return letter >= '0' && letter <= '9';
}

// Takes a number off the beginning of a text. Words for numbers are none here.
std::optional<double> TakeNumber(std::string_view& text) {
    const std::size_t first = text.find_first_not_of("-.");
    double number = 0;
    if (first == std::string_view::npos || !IsDigit(text[first])) {
        return std::nullopt;
    }
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
    return number;
}

std::optional<double> NumberOf(std::string_view text) {
    const auto number = TakeNumber(text);
    return text.empty() ? number : std::nullopt;
}

std::string RangeOf(std::string_view text) {
    const bool isRange = text.size() < OM_INSPECT_PERF_RANGE_SIZE &&
                         text.find_first_not_of("0123456789.-+~@:eE") == std::string_view::npos;
    return isRange ? std::string(text) : "";
}

bool IsUnit(std::string_view text) {
    return text.size() < OM_INSPECT_PERF_UNIT_SIZE && text.find('\'') == std::string_view::npos &&
           text::IsPlain(text) && std::none_of(text.begin(), text.end(), IsDigit);
}

// Takes the label with its "=" off the beginning of the data; nothing for a bad one, of which some is taken.
std::optional<std::string> TakeLabel(std::string_view& data) {
    std::string label;
    if (data[0] == '\'') {
        std::size_t at = 1;
        for (;; ++at) {
            const std::size_t quote = data.find('\'', at);
            if (quote == std::string_view::npos) {
                data = {};
                return std::nullopt;
            }
            label += data.substr(at, quote - at);
            at = quote + 1;
            if (at == data.size() || data[at] != '\'') {
                break;
            }
            label += '\'';
        }
        data.remove_prefix(at);
    } else {
        const std::size_t end = std::min(data.find('='), EndOfWord(data));
        label = data.substr(0, end);
        data.remove_prefix(end);
        if (label.find('\'') != std::string::npos) {
            return std::nullopt;
        }
    }
    if (data.empty() || data[0] != '=') {
        return std::nullopt;
    }
    data.remove_prefix(1);
    const bool fits = !label.empty() && label.size() < OM_INSPECT_PERF_LABEL_SIZE && text::IsPlain(label);
    return fits ? std::optional(label) : std::nullopt;
}

// The fields of a pair behind its label. Semicolons behind the last one mean nothing.
std::optional<client::PerfValue> ReadFields(std::string_view word) {
    std::array<std::string_view, kFields> fields;
    for (std::size_t i = 0; !word.empty(); ++i) {
        const std::size_t end = std::min(word.find(';'), word.size());
        if (i < kFields) {
            fields[i] = word.substr(0, end);
        } else if (end > 0) {
            return std::nullopt;
        }
        word.remove_prefix(std::min(end + 1, word.size()));
    }
    client::PerfValue value;
    const auto number = TakeNumber(fields[0]);
    if (!number || !IsUnit(fields[0])) {
        return std::nullopt;
    }
    value.value = *number;
    value.unit = fields[0];
    value.warn = RangeOf(fields[1]);
    value.crit = RangeOf(fields[2]);
    value.min = NumberOf(fields[3]);
    value.max = NumberOf(fields[4]);
    return value;
}

template <std::size_t size>
void SetField(char (&field)[size], const std::string& text) {
    std::memcpy(field, text.data(), std::min(text.size(), size - 1));
}

}  // namespace

std::string PerfDataOf(std::string_view output) {
    if (output.size() >= CommandOutput::kMaxOutput) {
        const std::size_t blank = output.find_last_of(kBlanks);
        output = output.substr(0, blank == std::string_view::npos ? 0 : blank);
    }
    output.remove_prefix(std::min(output.find_first_not_of(kBlanks), output.size()));
    const std::string_view first = output.substr(0, output.find('\n'));
    output.remove_prefix(first.size());
    std::string data;
    for (const std::string_view part : {first, output}) {
        const std::size_t bar = part.find('|');
        if (bar != std::string_view::npos) {
            (data += part.substr(bar + 1)) += '\n';
        }
    }
    return data;
}

std::vector<client::PerfValue> ParsePerfData(std::string_view data) {
    std::vector<client::PerfValue> values;
    while (values.size() < OM_INSPECT_PERF_SLOTS) {
        data.remove_prefix(std::min(data.find_first_not_of(kBlanks), data.size()));
        if (data.empty()) {
            break;
        }
        auto label = TakeLabel(data);
        const std::string_view word = data.substr(0, EndOfWord(data));
        data.remove_prefix(word.size());
        auto value = label ? ReadFields(word) : std::nullopt;
        if (value) {
            value->label = std::move(*label);
            values.push_back(std::move(*value));
        }
    }
    return values;
}

std::vector<client::PerfValue> MeasuredBy(const CommandOutcome& outcome) {
    const bool isWhole = outcome.end == CommandOutcome::End::kExited;
    return isWhole ? ParsePerfData(PerfDataOf(outcome.output.out)) : std::vector<client::PerfValue>();
}

std::string EncodePerfData(const std::string& item, const std::vector<client::PerfValue>& values) {
    OmInspectPerfHead head{};
    SetField(head.item, item);
    head.count = static_cast<std::uint32_t>(std::min<std::size_t>(values.size(), OM_INSPECT_PERF_SLOTS));
    std::string bytes(reinterpret_cast<const char*>(&head), sizeof head);
    for (std::size_t i = 0; i < head.count; ++i) {
        constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
        const client::PerfValue& value = values[i];
        OmInspectPerfValue record{};
        SetField(record.label, value.label);
        SetField(record.unit, value.unit);
        SetField(record.warn, value.warn);
        SetField(record.crit, value.crit);
        record.value = value.value;
        record.min = value.min.value_or(kNone);
        record.max = value.max.value_or(kNone);
        bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
    }
    return bytes;
}

}  // namespace ominspect::items
