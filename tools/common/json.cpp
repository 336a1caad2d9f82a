// cJSON answers a failed allocation with null; here it becomes std::bad_alloc.
#include "common/json.h"

#include <new>
#include <string>
#include <utility>

#include "common/text.h"

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

View View::operator[](const char* name) const {
    return View(cJSON_GetObjectItemCaseSensitive(json_, name));
}

View View::At(std::size_t index) const {
    return View(cJSON_GetArrayItem(json_, static_cast<int>(index)));
}

std::vector<std::pair<std::string, View>> View::Members() const {
    std::vector<std::pair<std::string, View>> members;
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, json_) {
        members.emplace_back(member->string == nullptr ? "" : member->string, member);
    }
    return members;
}

std::optional<std::string> View::Text() const {
    const char* text = cJSON_GetStringValue(json_);
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

std::optional<double> View::Number() const {
    return cJSON_IsNumber(json_) == 0 ? std::nullopt : std::optional(json_->valuedouble);
}

std::optional<bool> View::Flag() const {
    return cJSON_IsBool(json_) == 0 ? std::nullopt : std::optional(cJSON_IsTrue(json_) != 0);
}

Value::Value(cJSON* json) : json_(Checked(json)) {}

Value Value::Object() {
    return Value(cJSON_CreateObject());
}

Value Value::Array() {
    return Value(cJSON_CreateArray());
}

Result<Value> Value::Parse(std::string_view text) {
    cJSON* json = cJSON_ParseWithLength(text.data(), text.size());
    if (json == nullptr) {
        return OtherError("no JSON document");
    }
    return Value(json);
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
    // cJSON keeps numbers as doubles, and prints 15 digits of one that has 16.
    return Member(name, Checked(cJSON_CreateRaw(std::to_string(number).c_str())));
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
