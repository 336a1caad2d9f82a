// Payloads of group requests.
#pragma once

#include <string>
#include <vector>

#include "support/records.h"

namespace support {

/// Request texts that run these items, laid end to end and closed by an empty one.
inline std::string GroupPayload(const std::vector<std::string>& items) {
    std::string payload;
    for (const std::string& item : items) {
        payload += Request(item, "go") + '\0';
    }
    return payload + '\0';
}

}  // namespace support
