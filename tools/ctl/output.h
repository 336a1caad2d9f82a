// What ominspectctl prints of single items and events: tables for people, JSON for programs. Pure functions; every text
// ends without a line end, is valid UTF-8 and shows names and texts from outside escaped.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/client_answers.h"
#include "common/history_file.h"
#include "common/json.h"
#include "common/times.h"
#include "history.h"
#include "ominspect/client/types.h"

namespace ominspect::ctl {

// One item's run.
struct RunRow {
    client::ItemResult result;
    std::optional<std::chrono::milliseconds> duration;
};

// The table of a run, printed line by line as the results come: the heads, then one row per item. `nameWidth` is the
// width of the longest item name as it is shown.
std::size_t NameWidth(const std::vector<std::string>& items);
std::string RunHead(std::size_t nameWidth);
std::string RunLine(std::size_t nameWidth, const RunRow& row);

// The document of a run: one object per item, results and errors in the order they came.
json::Value RunJson(const RunRow& row);
using ominspect::ErrorJson;
json::Value ErrorJson(std::string_view item, const client::Error& error);

// What can be said of an item's state. The server says the same of an idle item and of one that it does not know, so an
// item that no process shows as its own counts as unknown.
enum class ShownState { kIdle, kNotIdle, kUnknown };
ShownState StateOf(client::ItemState state, bool hasOwner);

// One item. It has no state when its name cannot be sent, and no result when none was seen.
struct ListRow {
    client::Item item;
    std::optional<ShownState> state;
    std::optional<LastResult> last;
};

// `now` is what the age of the results is counted to; `total` is the number of configured items.
std::string ListTable(const std::vector<ListRow>& rows, TimePoint now);
std::string ListJson(const std::vector<ListRow>& rows, std::uint32_t total, TimePoint now);

// How long ago something was: "5 s ago", "3 min ago", "2 h ago", "4 d ago".
std::string Age(std::chrono::seconds age);

// What the gateway has kept, one line for each event; the heads alone when there is none.
std::string HistoryTable(const std::vector<history::Row>& rows);
std::string HistoryJson(const std::vector<history::Row>& rows);

// Why an item is said to be unknown that was not run.
std::string UnseenItemText(std::string_view item);

std::string StateTable(std::string_view item, ShownState state);
std::string StateJson(std::string_view item, ShownState state);

// Events, one line each, with the time they were received.
std::string RunEventLine(TimePoint time, const client::ItemResult& result);
std::string RunEventJson(TimePoint time, const client::ItemResult& result);
std::string BusyEventLine(TimePoint time, bool busy);
std::string BusyEventJson(TimePoint time, bool busy);
std::string ServerEventLine(TimePoint time, bool present);
std::string ServerEventJson(TimePoint time, bool present);

}  // namespace ominspect::ctl
