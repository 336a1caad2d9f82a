// JSON documents, written and read: a thin cover over cJSON that owns what it makes and misses no failed allocation.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <cjson/cJSON.h>

#include "common/error.h"

namespace ominspect::json {

// A part of a document, valid while the document lives; or nothing. Every part of nothing is nothing.
class View {
public:
    View() = default;
    explicit View(const cJSON* json) : json_(json) {}

    explicit operator bool() const { return json_ != nullptr; }

    // A member of an object, an element of an array.
    View operator[](const char* name) const;
    View At(std::size_t index) const;

    // All members with their names, in order; of an array its elements with empty names.
    std::vector<std::pair<std::string, View>> Members() const;

    bool IsObject() const { return cJSON_IsObject(json_) != 0; }

    // Nothing for a value of another type.
    std::optional<std::string> Text() const;
    std::optional<double> Number() const;
    std::optional<bool> Flag() const;

private:
    const cJSON* json_ = nullptr;
};

// A document, or a part to be put into one. Everything throws std::bad_alloc when there is no memory. Texts become
// valid UTF-8: a stray byte turns into U+FFFD, so text from outside is escaped by the caller if it must stay distinct.
class Value {
public:
    static Value Object();
    static Value Array();

    // Any JSON document.
    static Result<Value> Parse(std::string_view text);
    View Read() const { return View(json_.get()); }

    // Members of an object, in the order of the calls.
    Value& Text(const char* name, std::string_view text);
    Value& Number(const char* name, std::uint64_t number);  // printed exactly; not read again
    Value& Flag(const char* name, bool flag);
    Value& Put(const char* name, Value value);

    // Elements of an array.
    Value& Add(Value value);
    Value& AddText(std::string_view text);

    // One line, or indented for people. Without a line end, and without any control character that a terminal could
    // obey.
    std::string Print() const;
    std::string PrintIndented() const;

private:
    struct Delete {
        void operator()(cJSON* json) const { cJSON_Delete(json); }
    };
    using Node = std::unique_ptr<cJSON, Delete>;

    explicit Value(cJSON* json);
    Value& Member(const char* name, Node node);
    static Node Checked(cJSON* json);
    static Node TextNode(std::string_view text);

    Node json_;
};

}  // namespace ominspect::json
