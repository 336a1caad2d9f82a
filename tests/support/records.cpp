#include "support/records.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace support {

namespace {

template <std::size_t N>
void Fill(char (&field)[N], std::string_view text) {
    if (text.size() >= N) {
        std::fprintf(stderr, "a text of %zu bytes does not fit\n", text.size());
        std::abort();
    }
    std::memcpy(field, text.data(), text.size());
}

template <std::size_t N>
std::string Text(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

}  // namespace

tagKivoOmInspectionResult Result(std::string_view name, std::string_view status, std::string_view text) {
    tagKivoOmInspectionResult result{};
    Fill(result.name, name);
    Fill(result.status, status);
    Fill(result.text, text);
    return result;
}

Bytes BytesOfText(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string Show(const Bytes& result) {
    if (result.size() != 192) {
        return std::string("<") + std::to_string(result.size()) + " bytes>";
    }
    tagKivoOmInspectionResult record{};
    std::memcpy(&record, result.data(), sizeof(record));
    return Show(record);
}

std::string Show(const tagKivoOmInspectionResult& result) {
    return Text(result.name) + "|" + Text(result.status) + "|" + Text(result.text);
}

std::string Request(std::string_view name, std::string_view cmd) {
    return "{\"name\":\"" + std::string(name) + "\",\"cmd\":\"" + std::string(cmd) + "\"}";
}

}  // namespace support
