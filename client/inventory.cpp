// Merges the server's list and the owners' lists by item name.
#include "inventory.h"

#include <map>
#include <utility>

#include "failure.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"

namespace ominspect::client {
namespace {

// Take is called by the platform's library, so it must not throw.
struct Taker {
    std::vector<OwnedItem>& owned;
    bool outOfMemory = false;

    static void Take(const InspectOwnedItem* item, void* self) noexcept {
        auto& taker = *static_cast<Taker*>(self);
        try {
            taker.owned.push_back(
                {item->name, {item->procName, std::chrono::milliseconds(item->timeout), item->registered != 0}});
        } catch (const std::bad_alloc&) {
            taker.outOfMemory = true;
        }
    }
};

}  // namespace

Result<std::string> AskOwners(std::vector<OwnedItem>& owned, std::chrono::milliseconds time) {
    Taker taker{owned};
    const std::uint32_t result = InspectForEachOwnedItem(Taker::Take, &taker, static_cast<std::uint32_t>(time.count()));
    if (taker.outOfMemory) {
        return SendError(OS_MSG_ERR_NO_MEMORY);
    }
    if (result != OS_MSG_OK) {
        return SendError(result);
    }
    return std::string();
}

Inventory MakeInventory(Catalogue catalogue, const std::vector<OwnedItem>& owned) {
    Inventory inventory{{}, catalogue.total, {}};
    std::map<std::string, std::vector<ItemOwner>> owners;
    for (const OwnedItem& entry : owned) {
        if (entry.item.empty()) {
            inventory.silent.push_back(entry.owner.process);
        } else {
            owners[entry.item].push_back(entry.owner);
        }
    }
    // A configuration may name an item twice.
    std::map<std::string, std::vector<ItemOwner>> others = owners;
    for (ConfiguredItem& item : catalogue.items) {
        others.erase(item.name);
        const auto found = owners.find(item.name);
        inventory.items.push_back({std::string(item.name), std::move(item),
                                   found != owners.end() ? found->second : std::vector<ItemOwner>()});
    }
    for (auto& [name, processes] : others) {
        inventory.items.push_back({name, std::nullopt, std::move(processes)});
    }
    return inventory;
}

}  // namespace ominspect::client
