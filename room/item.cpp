// The subjects' tables, put together.
#include "item.h"

#include <algorithm>

#include "settings.h"

namespace room {
namespace {

std::vector<Item> BuiltInItems() {
    std::vector<Item> items;
    for (const auto subject : {BoardItems, NetworkItems, AudioItems, MediaItems, CameraItems, CallItems}) {
        const std::span<const Item> table = subject();
        items.insert(items.end(), table.begin(), table.end());
    }
    return items;
}

}  // namespace

std::vector<Item> ServedItems(const Settings& settings) {
    std::vector<Item> items = BuiltInItems();
    for (const Item& item : ExtraItems()) {
        if (settings.extra.Names(item.name)) {
            items.push_back(item);
        }
    }
    return items;
}

std::vector<Item> AllItems() {
    std::vector<Item> items = BuiltInItems();
    const std::span<const Item> extra = ExtraItems();
    items.insert(items.end(), extra.begin(), extra.end());
    return items;
}

const Item* FindItem(const std::vector<Item>& items, std::string_view name) {
    const auto found = std::find_if(items.begin(), items.end(), [name](const Item& item) { return item.name == name; });
    return found == items.end() ? nullptr : &*found;
}

}  // namespace room
