// A document has thousands of lines, so they are appended to the text directly.
#include "metrics/exposition.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "common/text.h"

namespace ominspect::gateway {
namespace {

const char* WordOf(MetricType type) {
    switch (type) {
        case MetricType::kCounter:
            return "counter";
        case MetricType::kGauge:
            return "gauge";
        case MetricType::kHistogram:
            break;
    }
    return "histogram";
}

// What is written as it stands, as nearly all label values are.
bool IsSimple(std::string_view value) {
    return std::all_of(value.begin(), value.end(),
                       [](char letter) { return letter >= ' ' && letter <= '~' && letter != '"' && letter != '\\'; });
}

template <typename Number>
void Append(std::string& text, Number value) {
    std::array<char, 40> digits{};
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    text.append(digits.data(), error == std::errc() ? end : digits.data());
}

void AppendNumber(std::string& text, double value) {
    if (std::isnan(value)) {
        text += "NaN";
    } else if (std::isinf(value)) {
        text += value > 0 ? "+Inf" : "-Inf";
    } else {
        Append(text, value);
    }
}

}  // namespace

std::string MetricNumber(double value) {
    std::string text;
    AppendNumber(text, value);
    return text;
}

void Exposition::Family(std::string_view name, MetricType type, std::string_view help) {
    family_ = name;
    ((((text_ += "# HELP ") += name) += ' ') += help) += '\n';
    ((((text_ += "# TYPE ") += name) += ' ') += WordOf(type)) += '\n';
}

void Exposition::Escaped(std::string_view value) {
    if (IsSimple(value)) {
        text_ += value;
        return;
    }
    for (const char letter : text::ToUtf8(value)) {
        if (letter == '\n') {
            text_ += "\\n";
        } else {
            if (letter == '"' || letter == '\\') {
                text_ += '\\';
            }
            text_ += letter;
        }
    }
}

void Exposition::Head(std::string_view suffix, std::initializer_list<Label> labels) {
    (text_ += family_) += suffix;
    char before = '{';
    for (const Label& label : labels) {
        if (!label.value.empty()) {
            ((text_ += before) += label.name) += "=\"";
            Escaped(label.value);
            text_ += '"';
            before = ',';
        }
    }
    text_ += before == ',' ? "} " : " ";
}

void Exposition::Sample(std::string_view suffix, std::initializer_list<Label> labels, double value) {
    Head(suffix, labels);
    AppendNumber(text_, value);
    text_ += '\n';
}

void Exposition::Sample(std::string_view suffix, std::initializer_list<Label> labels, std::uint64_t value) {
    Head(suffix, labels);
    Append(text_, value);
    text_ += '\n';
}

void Exposition::Gauge(std::string_view name, std::string_view help, double value) {
    Family(name, MetricType::kGauge, help);
    Sample({}, value);
}

void Exposition::Counter(std::string_view name, std::string_view help, std::uint64_t value) {
    Family(name, MetricType::kCounter, help);
    Sample({}, value);
}

}  // namespace ominspect::gateway
