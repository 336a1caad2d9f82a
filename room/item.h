// An item of the room: its name, what it looks at, and the function that looks.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "finding.h"

namespace room {

struct Settings;

struct Item {
    std::string_view name;
    std::string_view looksAt;  // for --describe: one sentence without a full stop
    Finding (*check)(const Settings& settings);
    unsigned limitSeconds = 10;  // whoever looks longer is ended
    bool isSync = true;          // as the server's list has it: answered at once, or with "running" and later
};

// One table per subject; each stands in its subject's file.
std::span<const Item> BoardItems();
std::span<const Item> NetworkItems();
std::span<const Item> AudioItems();
std::span<const Item> MediaItems();
std::span<const Item> CameraItems();
std::span<const Item> CallItems();
// Those that the room's file must name.
std::span<const Item> ExtraItems();

// The server's built-in items, in the order of the subjects, and behind them the extra items that the settings name.
std::vector<Item> ServedItems(const Settings& settings);

// All of them.
std::vector<Item> AllItems();

// The item of this name; null when there is none.
const Item* FindItem(const std::vector<Item>& items, std::string_view name);

}  // namespace room
