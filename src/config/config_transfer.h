// Converts attributes of the configuration file into the fields of its records. Nothing fails the caller: what is wrong
// is logged and leaves a fallback, so that one bad attribute never drops an element.
#pragma once

#include <string>
#include <vector>

#include "ominspect/collect.h"

namespace tinyxml2 {
class XMLElement;
}

/// Feature bits of an inspection item.
enum class InspectItemFeature : uint32_t { kIsSync = 1 };

struct ConfigTransfer {
    /// Whether a text consists of decimal digits, at least one.
    static bool IsAllNum(const std::string& s);

    /// Copies an attribute's value into `dst`; one that does not fit with its NUL leaves the empty text.
    static void TransStringAttr(tinyxml2::XMLElement* element, const char* attr, char* dst, unsigned int size);

    /// Decimal text to its low 32 bits; 0 on any error.
    static void String2Uint32(const std::string& s, unsigned int& out);

    /// An attribute of at most 9 digits; 0 on any error.
    static void TransUint32Attr(tinyxml2::XMLElement* element, const char* attr, unsigned int& out);

    /// The copy function that "isFolder" chooses: the directory copy for "true", else the file copy.
    static void TransFolderAttr(tinyxml2::XMLElement* element, InspectCopyFunction& fn);

    /// The feature bits of those of the attributes whose value is "true".
    static void TransBitAttr(tinyxml2::XMLElement* element, std::vector<std::string> attrs, long& bits);
};
