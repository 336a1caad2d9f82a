// Builds and shows the records that travel in payloads.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ominspect/records.h"

namespace support {

using Bytes = std::vector<unsigned char>;

/// A result record with these texts; what follows them is zero. Texts that do not fit end the test program.
tagKivoOmInspectionResult Result(std::string_view name, std::string_view status, std::string_view text);

/// The bytes of a plain record.
template <typename Record>
Bytes BytesOf(const Record& record) {
    const auto* begin = reinterpret_cast<const unsigned char*>(&record);
    return {begin, begin + sizeof(record)};
}

/// The bytes of a text, without a NUL.
Bytes BytesOfText(std::string_view text);

/// "name|status|text" of the 192 bytes of a result record; "<n bytes>" for any other size.
std::string Show(const Bytes& result);
std::string Show(const tagKivoOmInspectionResult& result);

/// A request text: {"name":"<name>","cmd":"<cmd>"}.
std::string Request(std::string_view name, std::string_view cmd);

}  // namespace support
