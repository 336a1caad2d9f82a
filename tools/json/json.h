// A JSON document to be printed, owned: a thin cover over cJSON that misses no failed allocation.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <cjson/cJSON.h>

namespace ominspect::json {

// An object or an array. Everything throws std::bad_alloc when there is no memory. Texts become valid UTF-8: a byte
// that belongs to no character turns into U+FFFD, so text from outside is escaped by the caller if it must stay
// distinct.
class Value {
public:
    static Value Object();
    static Value Array();

    // Members of an object, in the order of the calls.
    Value& Text(const char* name, std::string_view text);
    Value& Number(const char* name, std::uint64_t number);  // exact up to 2^53
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
