// cJSON owns the values of its tree: they are copied out before the tree is deleted.
#include "handlers/json.h"

#include <cjson/cJSON.h>

#include <cstring>
#include <memory>

#include "kivo/os_bounds.h"
#include "ominspect/entry.h"

namespace {

constexpr uint32_t kFailed = 1;

struct DeleteTree {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};

}  // namespace

uint32_t JsonGetValue(const JsonText* in, const char* key, char* out, uint32_t outSize) {
    if (in == nullptr || in->text == nullptr || key == nullptr || out == nullptr || outSize == 0) {
        return kFailed;
    }
    const std::unique_ptr<cJSON, DeleteTree> tree(cJSON_Parse(in->text));
    const char* value = cJSON_GetStringValue(cJSON_GetObjectItem(tree.get(), key));
    if (value == nullptr) {
        return kFailed;
    }
    const std::size_t length = std::strlen(value);
    if (length >= outSize || strncpy_s(out, outSize, value, length) != 0) {
        return kFailed;
    }
    return 0;
}

void JsonSetValue() {}

void JsonAddValue() {}

void JsonDelValue() {}
