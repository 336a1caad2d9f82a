// The command history: what the gateway has kept, without the server and without the bus.
#include <memory>
#include <string>

#include "commands.h"
#include "common/text.h"
#include "kept_history.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

struct HistoryOptions {
    std::string item;
    std::string status;
    std::string since;
    std::string until;
    std::size_t limit = 50;
    std::string file;
    bool json = false;
};

constexpr std::size_t kMostRows = 100000;

// Fills in a time; false when it is none.
bool SetTime(std::optional<TimePoint>& time, const std::string& text, TimePoint now) {
    time = ParseTime(text, now);
    return text.empty() || time;
}

ExitCode ShowHistory(const HistoryOptions& options) {
    const auto now = std::chrono::system_clock::now();
    history::Filter filter;
    filter.limit = options.limit;
    if (!options.item.empty()) {
        filter.item = text::ToUtf8(options.item);
    }
    if (!options.status.empty()) {
        filter.status = options.status;
    }
    if (!SetTime(filter.since, options.since, now) || !SetTime(filter.until, options.until, now)) {
        return Fail(client::Error{client::ErrorCode::kInvalidArgument,
                                  R"(a time is an age such as "2h", or "2026-01-31 12:34", or "2026-01-31T12:34:56Z")"},
                    options.json);
    }
    const std::string path = options.file.empty() ? PathOfKeptHistory() : options.file;
    auto reader = history::Reader::Open(path);
    auto rows = reader ? (*reader)->Find(filter) : reader.Failure();
    if (!rows) {
        client::Error error = rows.Failure();
        error.text = "cannot read the history " + text::Escaped(path) + ": " + error.text +
                     "; ominspect-gateway keeps it, and the group ominspect may read it";
        return Fail(error, options.json);
    }
    PrintLine(options.json ? HistoryJson(*rows) : HistoryTable(*rows));
    return kPassed;
}

}  // namespace

void AddHistory(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<HistoryOptions>();
    CLI::App* command = app.add_subcommand("history", "Shows what ominspect-gateway has kept, newest first");
    command->add_option("ITEM", options->item, "One item's runs only, and the gaps");
    command->add_option("--since", options->since, "From this time on: an age such as 2h or 3d, or a date and time")
        ->type_name("TIME");
    command->add_option("--until", options->until, "Up to this time")->type_name("TIME");
    command->add_option("--status", options->status, "Only results with this status")->type_name("STATUS");
    command->add_option("--limit", options->limit, "The most rows (default 50)")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{1}, kMostRows));
    command->add_option("--file", options->file, "Another history than the gateway's")->type_name("FILE");
    AddJson(*command, options->json);
    command->callback([options, &chosen] { chosen = [options] { return ShowHistory(*options); }; });
}

}  // namespace ominspect::ctl
