// How the commands show what the client library says of errors and owners.
#pragma once

#include <string>
#include <vector>

#include "common/json.h"
#include "ominspect/client/types.h"

namespace ominspect {

json::Value ErrorJson(const client::Error& error);

// The processes that own an item, escaped and with commas between them; empty when there is none.
std::string OwnerNames(const std::vector<client::ItemOwner>& owners);
json::Value OwnersJson(const std::vector<client::ItemOwner>& owners);

// Says that a process did not answer. It may own items that are shown without an owner.
std::string SilenceText(const std::string& process);

}  // namespace ominspect
