// JSON documents through cJSON. Out of memory, members and documents are left empty.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include <cjson/cJSON.h>

namespace ominspect::ctl {

struct JsonDelete {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDelete>;

struct JsonMember {
    const char* name;
    std::string_view text;  // bytes from outside; what is not UTF-8 becomes U+FFFD
};

// An object of text members.
Json JsonObject(std::initializer_list<JsonMember> members);

// Puts one document into another.
void JsonAdd(const Json& object, const char* name, Json member);
void JsonAdd(const Json& array, Json element);

// The document on one line.
std::string JsonText(const Json& json);

}  // namespace ominspect::ctl
