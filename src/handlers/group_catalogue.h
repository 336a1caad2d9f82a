// The catalogue of inspection groups.
#pragma once

#include <string>
#include <vector>

/// The group of a group request: the one of which the first of the request texts that names a member of any group
/// names a member; "unknown_group" if none does, or if a text before it has no name.
std::string GetGroupName(const std::vector<std::string>& requestTexts);

/// The names of all groups: "unknown_group", then those of the catalogue in order.
std::vector<std::string> GetGroupList();
