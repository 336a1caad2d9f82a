// The command list: configured and owned items, with their owners, states and last results.
#include <algorithm>
#include <string>
#include <vector>

#include "commands.h"
#include "common/text.h"
#include "history.h"
#include "kept_history.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

// The newer one of what the own commands and the gateway have seen.
std::optional<LastResult> LastOf(const std::string& item, const History& own, const KeptHistory& kept) {
    const auto mine = own.Find(item);
    auto all = kept.Find(item);
    return !all || (mine && mine->time > all->time) ? mine : all;
}

// The rows of the list; an item whose name cannot be sent has no state.
client::Result<std::vector<ListRow>> Gather(client::Session& session, const std::vector<client::Item>& items,
                                            const client::Limit& limit) {
    const History own;
    const KeptHistory kept;
    std::vector<ListRow> rows;
    for (const client::Item& item : items) {
        ListRow& row = rows.emplace_back(ListRow{item, std::nullopt, LastOf(item.name, own, kept)});
        if (client::CheckItemName(item.name)) {
            continue;
        }
        const auto state = session.State(item.name, limit);
        if (!state) {
            return state.Failure();
        }
        row.state = StateOf(*state, !item.owners.empty());
    }
    return rows;
}

// Says what is missing in the list.
void ComplainOf(const client::Inventory& inventory) {
    const auto configured = static_cast<std::size_t>(
        std::count_if(inventory.items.begin(), inventory.items.end(),
                      [](const client::Item& item) { return item.configuration.has_value(); }));
    if (inventory.configured > configured) {
        Complain("the server lists " + std::to_string(configured) + " of its " + std::to_string(inventory.configured) +
                 " items");
    }
    for (const std::string& process : inventory.silent) {
        Complain(SilenceText(process));
    }
}

}  // namespace

ExitCode List(const ListOptions& options) {
    const client::Limit limit(options.limit);
    const auto session = client::Session::Open();
    if (!session) {
        return Fail(session.Failure(), options.json);
    }
    const auto inventory = (*session)->Items(limit);
    if (!inventory) {
        return Fail(inventory.Failure(), options.json);
    }
    if (options.names) {
        for (const client::Item& item : inventory->items) {
            PrintLine(text::Escaped(item.name));
        }
        return kPassed;
    }
    const auto rows = Gather(**session, inventory->items, limit);
    if (!rows) {
        return Fail(rows.Failure(), options.json);
    }
    const auto now = std::chrono::system_clock::now();
    PrintLine(options.json ? ListJson(*rows, inventory->configured, now) : ListTable(*rows, now));
    ComplainOf(*inventory);
    return kPassed;
}

}  // namespace ominspect::ctl
