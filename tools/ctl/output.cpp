// What ominspectctl prints of single items and events.
#include "output.h"

#include <algorithm>

#include "text/text.h"

namespace ominspect::ctl {
namespace {

constexpr const char* kItemHead = "ITEM";
constexpr std::size_t kStatusWidth = 8;  // holds the usual words
constexpr std::size_t kTimeWidth = 9;
constexpr std::size_t kLongestName = 31;

constexpr const char* kUnknownHint = "unknown item: no owner has registered it";

// A row of the table of a run, whose widths are known before its texts are.
std::string Columns(std::size_t nameWidth, const std::string& name, const std::string& status, const std::string& time,
                    const std::string& text) {
    const std::string blanks(WidthOf(time) < kTimeWidth ? kTimeWidth - WidthOf(time) : 0, ' ');
    return Padded(name, nameWidth) + "  " + Padded(status, kStatusWidth) + "  " + blanks + time + "  " + text;
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
    std::size_t width = WidthOf(kItemHead);
    for (const std::string& item : items) width = std::max(width, WidthOf(text::Escaped(item)));
    return width;
}

std::string RunHead(std::size_t nameWidth) {
    return Columns(nameWidth, kItemHead, "STATUS", "TIME", "TEXT");
}

std::string RunLine(std::size_t nameWidth, const RunRow& row) {
    std::string shown = text::Escaped(row.result.text);
    if (client::IsUnknownItem(row.result)) shown += std::string(" (") + kUnknownHint + ")";
    return Columns(nameWidth, text::Escaped(row.result.name), text::Escaped(row.result.status),
                   row.duration ? std::to_string(row.duration->count()) + " ms" : "-", shown);
}

Json RunJson(const RunRow& row) {
    Json json = JsonObject({{"item", row.result.name}, {"status", row.result.status}, {"text", row.result.text}});
    if (row.duration) {
        cJSON_AddNumberToObject(json.get(), "durationMs", static_cast<double>(row.duration->count()));
    }
    if (client::IsUnknownItem(row.result)) cJSON_AddStringToObject(json.get(), "hint", kUnknownHint);
    return json;
}

Json ErrorJson(const client::Error& error) {
    return JsonObject({{"code", client::ErrorWord(error.code)}, {"text", error.text}});
}

Json ErrorJson(std::string_view item, const client::Error& error) {
    Json json = JsonObject({{"item", item}});
    JsonAdd(json, "error", ErrorJson(error));
    return json;
}

std::string ListTable(const std::vector<ListRow>& rows) {
    std::vector<std::vector<std::string>> table{{"ITEM", "LEVEL", "MODE", "STATE", "LAST RESULT"}};
    for (const ListRow& row : rows) {
        table.push_back({text::Escaped(row.item.name), text::Escaped(row.item.level), ModeOf(row.item),
                         row.state ? StateOf(*row.state) : "-", row.last ? LastOf(*row.last) : "-"});
    }
    return Table(table);
}

std::string ListJson(const std::vector<ListRow>& rows, std::uint32_t total) {
    Json items(cJSON_CreateArray());
    for (const ListRow& row : rows) {
        Json item = JsonObject({{"item", row.item.name}, {"level", row.item.level}});
        cJSON_AddBoolToObject(item.get(), "isSync", row.item.isSync);
        if (row.state) cJSON_AddStringToObject(item.get(), "state", StateOf(*row.state));
        if (row.last) {
            JsonAdd(item, "lastResult",
                    JsonObject(
                        {{"status", row.last->status}, {"text", row.last->text}, {"time", UtcTime(row.last->time)}}));
        }
        JsonAdd(items, std::move(item));
    }
    const Json document = JsonObject({});
    JsonAdd(document, "items", std::move(items));
    cJSON_AddNumberToObject(document.get(), "total", total);
    return JsonText(document);
}

std::string StateTable(std::string_view item, client::ItemState state) {
    const bool idle = state == client::ItemState::kIdleOrUnknown;
    return Table(
        {{"ITEM", "STATE"},
         {text::Escaped(item), idle ? "idle (or unknown to the server)" : "not idle (running, or holding a result)"}});
}

std::string StateJson(std::string_view item, client::ItemState state) {
    return JsonText(JsonObject({{"item", item}, {"state", StateOf(state)}}));
}

std::string RunEventLine(TimePoint time, const client::ItemResult& result) {
    return LocalTime(time) + "  run   " + Padded(text::Escaped(result.name), kLongestName) + "  " +
           Padded(text::Escaped(result.status), kStatusWidth) + "  " + text::Escaped(result.text);
}

std::string RunEventJson(TimePoint time, const client::ItemResult& result) {
    return JsonText(JsonObject({{"time", UtcTime(time)},
                                {"event", "run"},
                                {"item", result.name},
                                {"status", result.status},
                                {"text", result.text}}));
}

std::string BusyEventLine(TimePoint time, bool busy) {
    return LocalTime(time) + (busy ? "  busy" : "  idle");
}

std::string BusyEventJson(TimePoint time, bool busy) {
    return JsonText(JsonObject({{"time", UtcTime(time)}, {"event", busy ? "busy" : "idle"}}));
}

}  // namespace ominspect::ctl
