// The catalogue of inspection groups.
#pragma once

#include <string>
#include <vector>

/// The group of a group request: that of the first request text that names a member of one; "unknown_group" if none
/// does, or if a text before it has no name.
std::string GetGroupName(const std::vector<std::string>& requestTexts);

/// The names of all groups: "unknown_group", then those of the catalogue in order.
std::vector<std::string> GetGroupList();
