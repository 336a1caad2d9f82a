// JSON documents through cJSON.
#include "json.h"

#include "text/text.h"

namespace ominspect::ctl {

Json JsonObject(std::initializer_list<JsonMember> members) {
    Json object(cJSON_CreateObject());
    for (const JsonMember& member : members) {
        cJSON_AddStringToObject(object.get(), member.name, text::ToUtf8(member.text).c_str());
    }
    return object;
}

void JsonAdd(const Json& object, const char* name, Json member) {
    if (cJSON_AddItemToObject(object.get(), name, member.get()) != 0) (void)member.release();
}

void JsonAdd(const Json& array, Json element) {
    if (cJSON_AddItemToArray(array.get(), element.get()) != 0) (void)element.release();
}

std::string JsonText(const Json& json) {
    char* raw = cJSON_PrintUnformatted(json.get());
    std::string out = raw == nullptr ? "" : raw;
    cJSON_free(raw);
    return out;
}

}  // namespace ominspect::ctl
