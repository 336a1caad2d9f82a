// A JSON document to be printed.
#include "json/json.h"

#include <new>
#include <utility>

#include "text/text.h"

namespace ominspect::json {
namespace {

std::string Taken(char* raw) {
    if (raw == nullptr) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> owned(raw, cJSON_free);
    return raw;
}

}  // namespace

Value::Value(cJSON* json) : json_(Checked(json)) {}

Value Value::Object() {
    return Value(cJSON_CreateObject());
}

Value Value::Array() {
    return Value(cJSON_CreateArray());
}

Value::Node Value::Checked(cJSON* json) {
    if (json == nullptr) {
        throw std::bad_alloc();
    }
    return Node(json);
}

Value::Node Value::TextNode(std::string_view text) {
    return Checked(cJSON_CreateString(text::ToUtf8(text).c_str()));
}

Value& Value::Member(const char* name, Node node) {
    if (cJSON_AddItemToObject(json_.get(), name, node.get()) == 0) {
        throw std::bad_alloc();
    }
    (void)node.release();
    return *this;
}

Value& Value::Text(const char* name, std::string_view text) {
    return Member(name, TextNode(text));
}

Value& Value::Number(const char* name, std::uint64_t number) {
    return Member(name, Checked(cJSON_CreateNumber(static_cast<double>(number))));
}

Value& Value::Flag(const char* name, bool flag) {
    return Member(name, Checked(cJSON_CreateBool(flag ? 1 : 0)));
}

Value& Value::Put(const char* name, Value value) {
    return Member(name, std::move(value.json_));
}

Value& Value::Add(Value value) {
    (void)cJSON_AddItemToArray(json_.get(), value.json_.release());  // fails for null and for itself only
    return *this;
}

Value& Value::AddText(std::string_view text) {
    (void)cJSON_AddItemToArray(json_.get(), TextNode(text).release());
    return *this;
}

std::string Value::Print() const {
    return text::EscapedJson(Taken(cJSON_PrintUnformatted(json_.get())));
}

std::string Value::PrintIndented() const {
    return text::EscapedJson(Taken(cJSON_Print(json_.get())));
}

}  // namespace ominspect::json
