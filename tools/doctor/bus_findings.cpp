// Pure functions.
#include "doctor/bus_findings.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "ominspect/messages.h"

namespace ominspect::doctor {
namespace {

using client::ErrorCode;

constexpr const char* kServer = OM_INSPECT_PROC_NAME;  // it owns an item itself
constexpr std::uint32_t kToldItems = 256;              // the most that it tells

bool IsDenied(const BusFacts& facts) {
    return facts.joinFailure && facts.joinFailure->code == ErrorCode::kDenied;
}

Finding JudgeConnection(const BusFacts& facts) {
    if (!facts.joinFailure || IsDenied(facts)) {
        return {Verdict::kGood, "bus", (facts.isSystemBus ? "the system bus at " : "") + facts.address};
    }
    return {Verdict::kFailure, "bus", facts.joinFailure->text,
            facts.isSystemBus ? "systemctl start dbus"
                              : "KIVO_BUS_ADDRESS names this bus: start it, or unset the variable for the system bus"};
}

Finding JudgeRights(const BusFacts& facts, const Person& person, const std::string& policyAdvice) {
    const std::string user = "user " + person.name;
    const std::string group = std::string("group ") + kAskers;
    if (!facts.joinFailure) {
        const bool isGuarded = facts.server && facts.server->isGuarded.value_or(false);
        const bool mayOwn = !isGuarded || person.isRoot || person.isOwner;
        return {Verdict::kGood, "rights",
                user + (mayOwn ? " may ask and own items"
                               : std::string(" may ask; owning items takes the group ") + kOwners)};
    }
    if (!IsDenied(facts)) {
        return {Verdict::kUnknown, "rights", "not known without the bus"};
    }
    if (person.isRoot || person.isMember) {
        return {Verdict::kFailure, "rights", "the bus lets nobody ask: it does not have the inspection system's policy",
                policyAdvice};
    }
    if (person.isListed) {
        return {Verdict::kFailure, "rights", user + " is in the " + group + ", but this login is older",
                "log in again"};
    }
    return {Verdict::kFailure, "rights", user + " is not in the " + group,
            std::string("usermod -aG ") + kAskers + ' ' + person.name + ", then log in again"};
}

// A beginning of the list that fits on a line.
std::string Listed(const std::vector<std::string>& names) {
    constexpr std::size_t kShown = 6;
    std::string out;
    for (std::size_t i = 0; i < std::min(names.size(), kShown); ++i) {
        out += (i == 0 ? "" : ", ") + names[i];
    }
    return names.size() > kShown ? out + " and " + std::to_string(names.size() - kShown) + " more" : out;
}

std::string Counted(std::size_t count, const std::string& one) {
    return std::to_string(count) + ' ' + one + (count == 1 ? "" : "s");
}

// The items by what is to be said of them.
struct Sorted {
    std::map<std::string, std::size_t> owners;  // process, items
    std::vector<std::string> unowned;
    std::vector<std::string> unconfigured;
    std::vector<std::string> contested;     // owned by several processes
    std::vector<std::string> unregistered;  // with the server that runs now
};

Sorted Sort(const client::Inventory& inventory) {
    Sorted sorted;
    for (const client::Item& item : inventory.items) {
        for (const client::ItemOwner& owner : item.owners) {
            if (owner.process != kServer) {
                ++sorted.owners[owner.process];
            }
        }
        if (item.owners.empty()) {
            sorted.unowned.push_back(item.name);
            continue;
        }
        if (!item.configuration) {
            sorted.unconfigured.push_back(item.name);
        }
        if (item.owners.size() > 1) {
            sorted.contested.push_back(item.name);
        }
        if (std::none_of(item.owners.begin(), item.owners.end(), [](const auto& one) { return one.isRegistered; })) {
            sorted.unregistered.push_back(item.name);
        }
    }
    return sorted;
}

bool IsSameItem(const client::ConfiguredItem& one, const client::ConfiguredItem& other) {
    return one.name == other.name && one.level == other.level && one.isSync == other.isSync;
}

// Whether the server has other items than the file. It tells at most 256 of them; the file's have each name once.
bool Differs(const client::Inventory& told, const client::Catalogue& configured) {
    std::set<std::string> seen{""};
    std::vector<client::ConfiguredItem> items;
    for (const client::Item& item : told.items) {
        if (item.configuration && seen.insert(item.name).second) {
            items.push_back(*item.configuration);
        }
    }
    const bool isWhole = told.configured <= kToldItems;
    return told.configured != configured.total || (isWhole && items.size() != configured.items.size()) ||
           !std::equal(items.begin(),
                       items.begin() + static_cast<std::ptrdiff_t>(std::min(items.size(), configured.items.size())),
                       configured.items.begin(), IsSameItem);
}

Finding JudgeOwners(const Sorted& sorted, const std::vector<std::string>& silent) {
    if (!silent.empty()) {
        return {Verdict::kWarning, "owners", "no answer from " + Listed(silent), "look at these processes: they hang"};
    }
    if (sorted.owners.empty()) {
        return {Verdict::kWarning, "owners", "no process owns an item: none can be run",
                "start an owner: systemctl start ominspect-owner@NAME, or ominspect-owner FILE"};
    }
    std::vector<std::string> names;
    for (const auto& [process, items] : sorted.owners) {
        names.push_back(process + " (" + Counted(items, "item") + ')');
    }
    return {Verdict::kGood, "owners", Listed(names)};
}

}  // namespace

std::vector<Finding> JudgeBus(const BusFacts& facts, const Person& person, const std::string& policyAdvice) {
    std::vector<Finding> findings{JudgeConnection(facts), JudgeRights(facts, person, policyAdvice)};
    if (!facts.server || !facts.server->isGuarded) {
        findings.push_back({Verdict::kUnknown, "policy", "not known without an answer of the server"});
    } else if (*facts.server->isGuarded) {
        findings.push_back({Verdict::kGood, "policy", "in force"});
    } else {
        findings.push_back({Verdict::kWarning, "policy",
                            "none: whoever reaches this bus may be the server, or an owner",
                            "right for a trial on a bus of one's own; else use the system bus"});
    }
    return findings;
}

std::vector<Finding> JudgeServer(const BusFacts& facts, const std::string& version) {
    if (facts.joinFailure) {
        return {{Verdict::kUnknown, "server", "not known without the bus"}};
    }
    if (!facts.server) {
        return {{Verdict::kFailure, "server", "absent: no process \"ominspect\" on this bus",
                 facts.isSystemBus ? "systemctl start ominspect; why it ended: journalctl -u ominspect"
                                   : "start ominspect with the same KIVO_BUS_ADDRESS"}};
    }
    const ServerFacts& server = *facts.server;
    const std::string name = "ominspect " + server.version.value_or("of an unknown version") + ", process " +
                             std::to_string(server.process) + ", user " + server.user;
    if (facts.listError && facts.listError->code == ErrorCode::kTimeLimit) {
        return {{Verdict::kWarning, "server", name + ", does not answer",
                 "wait: a synchronous run may hold it for 300 s; a server that hangs is restarted by its watchdog"}};
    }
    if (facts.listError) {
        return {
            {Verdict::kFailure, "server", name + ": " + facts.listError->text, "journalctl -u ominspect says more"}};
    }
    if (server.version && *server.version != version) {
        return {{Verdict::kWarning, "server", name + "; this is ominspectctl " + version,
                 "restart it after an upgrade: systemctl restart ominspect"}};
    }
    return {{Verdict::kGood, "server", name}};
}

std::vector<Finding> JudgeItems(const BusFacts& facts, const client::Catalogue& configured) {
    if (facts.joinFailure) {
        return {{Verdict::kUnknown, "owners", "not known without the bus"}};
    }
    const Sorted sorted = Sort(facts.inventory);
    std::vector<Finding> findings;
    if (facts.server && !facts.listError && Differs(facts.inventory, configured)) {
        findings.push_back({Verdict::kWarning, "items", "the server's items are not those of the configuration file",
                            "it reads the file when it starts: systemctl reload-or-restart ominspect"});
    }
    findings.push_back(JudgeOwners(sorted, facts.inventory.silent));
    if (!sorted.unowned.empty()) {
        findings.push_back(
            {Verdict::kWarning, "items",
             "without an owner (" + std::to_string(sorted.unowned.size()) + "): " + Listed(sorted.unowned),
             "start their owners (the package ominspect-room has one for the built-in items), or unlist them"});
    }
    if (!sorted.contested.empty()) {
        findings.push_back({Verdict::kWarning, "items", "with several owners: " + Listed(sorted.contested),
                            "the server asks the one that registered first: stop the others"});
    }
    if (facts.server && !sorted.unregistered.empty()) {
        findings.push_back({Verdict::kWarning, "items",
                            "not registered with the server: " + Listed(sorted.unregistered),
                            "owners register again within moments of a restart; restart one that does not"});
    }
    if (!sorted.unconfigured.empty()) {
        findings.push_back({Verdict::kGood, "items",
                            "owned but not configured (" + std::to_string(sorted.unconfigured.size()) +
                                "): " + Listed(sorted.unconfigured) + "; they run by name, not in group --all"});
    }
    return findings;
}

}  // namespace ominspect::doctor
