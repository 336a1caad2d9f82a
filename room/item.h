// An item of the room: its name, what it looks at, and the function that looks.
#pragma once

#include <span>
#include <string_view>

#include "finding.h"

namespace room {

struct Settings;

struct Item {
    std::string_view name;
    std::string_view looksAt;  // for --describe: one sentence without a full stop
    Finding (*check)(const Settings& settings);
    unsigned limitSeconds = 10;  // whoever looks longer is ended
    bool isSync = true;          // as the server's list has it: answered at once, or with "running" and later
    bool isExtra = false;        // served only when the room's file names it
};

// One table per subject; each stands in its subject's file.
std::span<const Item> CallItems();

}  // namespace room
