// A new group is one more row of kGroups.
#include "handlers/group_catalogue.h"

#include <algorithm>
#include <map>

#include "base/records.h"
#include "handlers/json.h"

namespace {

const std::map<std::string, std::vector<std::string>> kGroups{
    {"kivo_group_trace", {"kivo_om_diag_log", "kivo_om_diag_reports", "kivo_om_diag_msg", "kivo_devm_uwb_log"}},
};

const std::string kUnknownGroup = "unknown_group";

}  // namespace

std::string GetGroupName(const std::vector<std::string>& requestTexts) {
    for (const auto& [group, members] : kGroups) {
        for (const std::string& request : requestTexts) {
            const JsonText json{request.c_str(), static_cast<uint32_t>(request.length())};
            char name[OM_INSPECT_NAME_SIZE] = {};
            if (JsonGetValue(&json, "name", name, sizeof(name)) != 0) {
                return kUnknownGroup;
            }
            if (std::find(members.begin(), members.end(), name) != members.end()) {
                return group;
            }
        }
    }
    return kUnknownGroup;
}

std::vector<std::string> GetGroupList() {
    std::vector<std::string> names{kUnknownGroup};
    for (const auto& [group, members] : kGroups) {
        names.push_back(group);
    }
    return names;
}
