// The items of a system: those that are configured, and those that somebody owns.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "ominspect/client/error.h"
#include "ominspect/client/types.h"

namespace ominspect::client {

// What one process says; an empty item: it did not answer.
struct OwnedItem {
    std::string item;
    ItemOwner owner;
};

// Appends what the processes on the bus own. Nothing of interest on success. BusUnreachable, Internal.
Result<std::string> AskOwners(std::vector<OwnedItem>& owned, std::chrono::milliseconds time);

Inventory MakeInventory(Catalogue catalogue, const std::vector<OwnedItem>& owned);

}  // namespace ominspect::client
