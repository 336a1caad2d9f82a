// Lists the items of a system: the configured ones, and those that a process owns.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "ominspect/client/error.h"
#include "ominspect/client/types.h"

namespace ominspect::client {

// One item of a process. The item is empty if the process did not answer.
struct OwnedItem {
    std::string item;
    ItemOwner owner;
};

// Appends what the processes on the bus own. The text on success is empty. BusUnreachable, Internal.
Result<std::string> AskOwners(std::vector<OwnedItem>& owned, std::chrono::milliseconds time);

Inventory MakeInventory(Catalogue catalogue, const std::vector<OwnedItem>& owned);

}  // namespace ominspect::client
