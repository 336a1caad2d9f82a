// The texts for people are escaped; JSON is escaped when it is printed.
#include "output.h"

#include <algorithm>
#include <utility>

#include "common/table.h"
#include "common/text.h"

namespace ominspect::ctl {
namespace {

constexpr const char* kItemHead = "ITEM";
constexpr std::size_t kStatusWidth = 8;  // holds the usual words
constexpr std::size_t kTimeWidth = 9;
constexpr std::size_t kLongestName = 31;

constexpr const char* kUnknownHint = "unknown item: no owner has registered it";

// A row of the table of a run. Rows are printed one by one, so the widths are fixed beforehand.
std::string Columns(std::size_t nameWidth, const std::string& name, const std::string& status, const std::string& time,
                    const std::string& text) {
    const std::string blanks(text::WidthOf(time) < kTimeWidth ? kTimeWidth - text::WidthOf(time) : 0, ' ');
    return text::Padded(name, nameWidth) + "  " + text::Padded(status, kStatusWidth) + "  " + blanks + time + "  " +
           text;
}

const char* ModeOf(const client::ConfiguredItem& item) {
    return item.isSync ? "sync" : "async";
}

std::string LastOf(const LastResult& last) {
    return text::Escaped(last.status) + ", " + LocalDate(last.time) + ": " + text::Escaped(last.text);
}

const char* StateOf(client::ItemState state) {
    return state == client::ItemState::kIdleOrUnknown ? "idle" : "not idle";
}

}  // namespace

std::size_t NameWidth(const std::vector<std::string>& items) {
    std::size_t width = text::WidthOf(kItemHead);
    for (const std::string& item : items) {
        width = std::max(width, text::WidthOf(text::Escaped(item)));
    }
    return width;
}

std::string RunHead(std::size_t nameWidth) {
    return Columns(nameWidth, kItemHead, "STATUS", "TIME", "TEXT");
}

std::string RunLine(std::size_t nameWidth, const RunRow& row) {
    std::string shown = text::Escaped(row.result.text);
    if (client::IsUnknownItem(row.result)) {
        shown += std::string(" (") + kUnknownHint + ")";
    }
    return Columns(nameWidth, text::Escaped(row.result.name), text::Escaped(row.result.status),
                   row.duration ? std::to_string(row.duration->count()) + " ms" : "-", shown);
}

json::Value RunJson(const RunRow& row) {
    auto json = json::Value::Object();
    json.Text("item", row.result.name).Text("status", row.result.status).Text("text", row.result.text);
    if (row.duration) {
        json.Number("durationMs", static_cast<std::uint64_t>(row.duration->count()));
    }
    if (client::IsUnknownItem(row.result)) {
        json.Text("hint", kUnknownHint);
    }
    return json;
}

json::Value ErrorJson(const client::Error& error) {
    auto json = json::Value::Object();
    json.Text("code", client::ErrorWord(error.code)).Text("text", error.text);
    return json;
}

json::Value ErrorJson(std::string_view item, const client::Error& error) {
    auto json = json::Value::Object();
    json.Text("item", item).Put("error", ErrorJson(error));
    return json;
}

std::string ListTable(const std::vector<ListRow>& rows) {
    std::vector<std::vector<std::string>> table{{"ITEM", "LEVEL", "MODE", "STATE", "LAST RESULT"}};
    for (const ListRow& row : rows) {
        table.push_back({text::Escaped(row.item.name), text::Escaped(row.item.level), ModeOf(row.item),
                         row.state ? StateOf(*row.state) : "-", row.last ? LastOf(*row.last) : "-"});
    }
    return text::Table(table);
}

std::string ListJson(const std::vector<ListRow>& rows, std::uint32_t total) {
    auto items = json::Value::Array();
    for (const ListRow& row : rows) {
        auto item = json::Value::Object();
        item.Text("item", row.item.name).Text("level", row.item.level).Flag("isSync", row.item.isSync);
        if (row.state) {
            item.Text("state", StateOf(*row.state));
        }
        if (row.last) {
            auto last = json::Value::Object();
            last.Text("status", row.last->status).Text("text", row.last->text).Text("time", UtcTime(row.last->time));
            item.Put("lastResult", std::move(last));
        }
        items.Add(std::move(item));
    }
    auto document = json::Value::Object();
    document.Put("items", std::move(items)).Number("total", total);
    return document.Print();
}

std::string StateTable(std::string_view item, client::ItemState state) {
    const bool idle = state == client::ItemState::kIdleOrUnknown;
    return text::Table(
        {{"ITEM", "STATE"},
         {text::Escaped(item), idle ? "idle (or unknown to the server)" : "not idle (running, or holding a result)"}});
}

std::string StateJson(std::string_view item, client::ItemState state) {
    return json::Value::Object().Text("item", item).Text("state", StateOf(state)).Print();
}

std::string RunEventLine(TimePoint time, const client::ItemResult& result) {
    return LocalTime(time) + "  run   " + text::Padded(text::Escaped(result.name), kLongestName) + "  " +
           text::Padded(text::Escaped(result.status), kStatusWidth) + "  " + text::Escaped(result.text);
}

std::string RunEventJson(TimePoint time, const client::ItemResult& result) {
    auto json = json::Value::Object();
    json.Text("time", UtcTime(time)).Text("event", "run").Text("item", result.name);
    return json.Text("status", result.status).Text("text", result.text).Print();
}

std::string BusyEventLine(TimePoint time, bool busy) {
    return LocalTime(time) + (busy ? "  busy" : "  idle");
}

std::string BusyEventJson(TimePoint time, bool busy) {
    return json::Value::Object().Text("time", UtcTime(time)).Text("event", busy ? "busy" : "idle").Print();
}

}  // namespace ominspect::ctl
