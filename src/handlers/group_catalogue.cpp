// A new group is one more row of kGroups. Nothing here needs destruction: the server's task may outlast static objects.
#include "handlers/group_catalogue.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/records.h"
#include "handlers/json.h"

namespace {

struct Group {
    const char* name;
    std::array<std::string_view, 4> members;
};

// In the order of their names.
constexpr Group kGroups[] = {
    {"kivo_group_trace", {"kivo_om_diag_log", "kivo_om_diag_reports", "kivo_om_diag_msg", "kivo_devm_uwb_log"}},
};

constexpr const char* kUnknownGroup = "unknown_group";

}  // namespace

std::string GetGroupName(const std::vector<std::string>& requestTexts) {
    for (const auto& [group, members] : kGroups) {
        for (const std::string& request : requestTexts) {
            const JsonText json{request.c_str(), static_cast<uint32_t>(request.length())};
            char name[OM_INSPECT_NAME_SIZE] = {};
            if (JsonGetValue(&json, "name", name, sizeof(name)) != 0) {
                return kUnknownGroup;
            }
            // A group of fewer members has empty ones, which are nobody's name.
            if (name[0] != '\0' && std::find(members.begin(), members.end(), std::string_view(name)) != members.end()) {
                return group;
            }
        }
    }
    return kUnknownGroup;
}

std::vector<std::string> GetGroupList() {
    std::vector<std::string> names{kUnknownGroup};
    for (const auto& [group, members] : kGroups) {
        names.emplace_back(group);
    }
    return names;
}
