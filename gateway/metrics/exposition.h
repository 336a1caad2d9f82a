// The text format of Prometheus, version 0.0.4: families of samples, each family in one piece.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace ominspect::gateway {

enum class MetricType { kCounter, kGauge, kHistogram };

// A label: its name as it is, its value any bytes. One without a value is the same as none, and left out.
struct Label {
    std::string_view name;
    std::string_view value;
};

class Exposition {
public:
    // `expected` bytes of text.
    explicit Exposition(std::size_t expected = 0) { text_.reserve(expected); }

    // Begins a family; its samples follow. `help` is a line of plain text, with a blank for each line end.
    void Family(std::string_view name, MetricType type, std::string_view help);

    void Sample(std::initializer_list<Label> labels, double value) { Sample("", labels, value); }
    void Sample(std::initializer_list<Label> labels, std::uint64_t value) { Sample("", labels, value); }
    // `suffix`: "_bucket", "_sum", "_count".
    void Sample(std::string_view suffix, std::initializer_list<Label> labels, double value);
    void Sample(std::string_view suffix, std::initializer_list<Label> labels, std::uint64_t value);

    // A family of one sample without labels.
    void Gauge(std::string_view name, std::string_view help, double value);
    void Counter(std::string_view name, std::string_view help, std::uint64_t value);

    std::string Take() { return std::move(text_); }

private:
    void Head(std::string_view suffix, std::initializer_list<Label> labels);
    void Escaped(std::string_view value);

    std::string text_;
    std::string_view family_;  // of the caller's
};

// A number as the format wants it: the shortest text that means it, or "NaN", "+Inf", "-Inf".
std::string MetricNumber(double value);

}  // namespace ominspect::gateway
