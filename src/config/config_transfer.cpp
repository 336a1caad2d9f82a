// Failures are logged here; callers only see the fallback.
#include "config/config_transfer.h"

#include <tinyxml2.h>

#include <array>
#include <map>
#include <stdexcept>
#include <string_view>

#include "base/log.h"
#include "kivo/os_bounds.h"

namespace {

constexpr LogUnit kLogUnit{"InspectConfigMgr", 20};

// Null when the element has no such attribute.
const char* ValueOf(tinyxml2::XMLElement* element, const char* attr) {
    const tinyxml2::XMLAttribute* found = element->FindAttribute(attr);
    const char* value = found == nullptr ? nullptr : found->Value();
    if (value == nullptr) {
        INSPECT_ERROR("config file value [%s] get err.", attr);
    }
    return value;
}

}  // namespace

bool ConfigTransfer::IsAllNum(const std::string& s) {
    return !s.empty() && s.find_first_not_of("0123456789") == std::string::npos;
}

void ConfigTransfer::TransStringAttr(tinyxml2::XMLElement* element, const char* attr, char* dst, unsigned int size) {
    const char* value = ValueOf(element, attr);
    if (value == nullptr) {
        return;
    }
    if (const errno_t error = strcpy_s(dst, size, value); error != 0) {
        INSPECT_ERROR("config file value [%s] strcpy_s err, ret %d.", attr, error);
    }
}

void ConfigTransfer::String2Uint32(const std::string& s, unsigned int& out) {
    constexpr const char* kName = "String2Uint32";
    out = 0;
    if (!IsAllNum(s)) {
        INSPECT_ERROR("%s err,[%s] is not digit.", kName, s.c_str());
        return;
    }
    try {
        out = static_cast<unsigned int>(std::stoull(s));  // the low 32 of its 64 bits
    } catch (const std::invalid_argument&) {
        INSPECT_ERROR("%s err,[%s] Invalid_argument.", kName, s.c_str());
    } catch (const std::out_of_range&) {
        INSPECT_ERROR("%s err,[%s] Out of range.", kName, s.c_str());
    } catch (...) {
        INSPECT_ERROR("%s err,[%s] unknown error.", kName, s.c_str());
    }
}

void ConfigTransfer::TransUint32Attr(tinyxml2::XMLElement* element, const char* attr, unsigned int& out) {
    std::array<char, 10> digits{};
    TransStringAttr(element, attr, digits.data(), digits.size());
    out = 0;
    if (digits[0] == '\0') {
        INSPECT_ERROR("TransUint32Attr [%s] parse err.", attr);
        return;
    }
    String2Uint32(digits.data(), out);
}

void ConfigTransfer::TransFolderAttr(tinyxml2::XMLElement* element, InspectCopyFunction& fn) {
    std::array<char, 64> isFolder{};
    TransStringAttr(element, "isFolder", isFolder.data(), isFolder.size());
    fn = std::string_view(isFolder.data()) == "true" ? InspectCopyDirFile : InspectCopyFile;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes the list by value
void ConfigTransfer::TransBitAttr(tinyxml2::XMLElement* element, std::vector<std::string> attrs, long& bits) {
    const std::map<std::string, InspectItemFeature> features{{"isSync", InspectItemFeature::kIsSync}};
    uint32_t accumulated = 0;
    for (const std::string& attr : attrs) {
        const auto feature = features.find(attr);
        if (feature == features.end()) {
            INSPECT_ERROR("local bit map [%s] get err.", attr.c_str());
            continue;
        }
        const char* value = ValueOf(element, attr.c_str());
        if (value != nullptr && std::string_view(value) == "true") {
            accumulated |= static_cast<uint32_t>(feature->second);
        }
    }
    bits = static_cast<long>(accumulated);
}
