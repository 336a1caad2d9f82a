// The command list: the configured items with their states and last results.
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "history.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

struct ListOptions {
    std::chrono::seconds limit{10};
    bool json = false;
};

// The rows of the list; an item whose name cannot be sent has no state.
client::Result<std::vector<ListRow>> Gather(client::Session& session, const client::Catalogue& catalogue,
                                            const client::Limit& limit) {
    const History history;
    std::vector<ListRow> rows;
    for (const client::ConfiguredItem& item : catalogue.items) {
        ListRow& row = rows.emplace_back(ListRow{item, std::nullopt, history.Find(item.name)});
        if (client::CheckItemName(item.name)) {
            continue;
        }
        const auto state = session.State(item.name, limit);
        if (!state) {
            return state.Failure();
        }
        row.state = *state;
    }
    return rows;
}

ExitCode List(const ListOptions& options) {
    const client::Limit limit(options.limit);
    const auto session = client::Session::Open();
    if (!session) {
        return Fail(session.Failure(), options.json);
    }
    const auto catalogue = (*session)->List(limit);
    if (!catalogue) {
        return Fail(catalogue.Failure(), options.json);
    }
    const auto rows = Gather(**session, *catalogue, limit);
    if (!rows) {
        return Fail(rows.Failure(), options.json);
    }
    PrintLine(options.json ? ListJson(*rows, catalogue->total) : ListTable(*rows));
    if (catalogue->total > catalogue->items.size()) {
        Complain("the server lists " + std::to_string(catalogue->items.size()) + " of its " +
                 std::to_string(catalogue->total) + " items");
    }
    return kPassed;
}

}  // namespace

void AddList(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<ListOptions>();
    CLI::App* command =
        app.add_subcommand("list", "Lists the configured items, with the last results that your commands saw");
    AddLimit(*command, options->limit, "Time limit (default 10)");
    AddJson(*command, options->json);
    command->callback([options, &chosen] { chosen = [options] { return List(*options); }; });
}

}  // namespace ominspect::ctl
