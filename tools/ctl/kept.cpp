// The command history: what the gateway has kept, without the server and without the bus.
#include <chrono>
#include <optional>
#include <string>

#include "commands.h"
#include "common/text.h"
#include "kept_history.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

// Fills in a time; false when it is none.
bool SetTime(std::optional<TimePoint>& time, const std::string& text, TimePoint now) {
    time = ParseTime(text, now);
    return text.empty() || time;
}

}  // namespace

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

}  // namespace ominspect::ctl
