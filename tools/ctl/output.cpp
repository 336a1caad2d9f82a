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

std::chrono::seconds AgeOf(const LastResult& last, TimePoint now) {
    return std::max(std::chrono::seconds(0), std::chrono::duration_cast<std::chrono::seconds>(now - last.time));
}

std::string LastOf(const LastResult& last, TimePoint now) {
    return text::Escaped(last.status) + ", " + Age(AgeOf(last, now)) + ": " + text::Escaped(last.text);
}

const char* WordOf(ShownState state) {
    switch (state) {
        case ShownState::kIdle:
            return "idle";
        case ShownState::kNotIdle:
            return "not idle";
        case ShownState::kUnknown:
            break;
    }
    return "unknown";
}

// The processes that own an item, the first one that registered it among them.
std::string OwnersOf(const client::Item& item) {
    return item.owners.empty() ? "-" : OwnerNames(item.owners);
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
        shown += " (" + text::Escaped(client::UnknownItemText(row.result.name)) + ")";
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
        json.Text("hint", client::UnknownItemText(row.result.name));
    }
    return json;
}

json::Value ErrorJson(std::string_view item, const client::Error& error) {
    auto json = json::Value::Object();
    json.Text("item", item).Put("error", ErrorJson(error));
    return json;
}

ShownState StateOf(client::ItemState state, bool hasOwner) {
    if (state == client::ItemState::kNotIdle) {
        return ShownState::kNotIdle;
    }
    return hasOwner ? ShownState::kIdle : ShownState::kUnknown;
}

std::string Age(std::chrono::seconds age) {
    constexpr std::pair<const char*, std::chrono::seconds> kUnits[] = {
        {" d ago", std::chrono::hours(24)}, {" h ago", std::chrono::hours(1)}, {" min ago", std::chrono::minutes(1)}};
    for (const auto& [word, unit] : kUnits) {
        if (age >= unit) {
            return std::to_string(age / unit) + word;
        }
    }
    return std::to_string(age.count()) + " s ago";
}

std::string ListTable(const std::vector<ListRow>& rows, TimePoint now) {
    std::vector<std::vector<std::string>> table{{kItemHead, "LEVEL", "MODE", "OWNER", "STATE", "LAST RESULT"}};
    for (const ListRow& row : rows) {
        const auto& configuration = row.item.configuration;
        table.push_back({text::Escaped(row.item.name), configuration ? text::Escaped(configuration->level) : "-",
                         configuration ? ModeOf(*configuration) : "-", OwnersOf(row.item),
                         row.state ? WordOf(*row.state) : "-", row.last ? LastOf(*row.last, now) : "-"});
    }
    return text::Table(table);
}

std::string ListJson(const std::vector<ListRow>& rows, std::uint32_t total, TimePoint now) {
    auto items = json::Value::Array();
    for (const ListRow& row : rows) {
        auto item = json::Value::Object();
        item.Text("item", row.item.name).Flag("isConfigured", row.item.configuration.has_value());
        if (const auto& configuration = row.item.configuration) {
            item.Text("level", configuration->level).Flag("isSync", configuration->isSync);
        }
        item.Put("owners", OwnersJson(row.item.owners));
        if (row.state) {
            item.Text("state", WordOf(*row.state));
        }
        if (row.last) {
            auto last = json::Value::Object();
            last.Text("status", row.last->status).Text("text", row.last->text).Text("time", UtcTime(row.last->time));
            last.Number("ageSeconds", static_cast<std::uint64_t>(AgeOf(*row.last, now).count()));
            item.Put("lastResult", std::move(last));
        }
        items.Add(std::move(item));
    }
    auto document = json::Value::Object();
    document.Put("items", std::move(items)).Number("total", total);
    return document.Print();
}

std::string HistoryTable(const std::vector<history::Row>& rows) {
    std::vector<std::vector<std::string>> table{{"TIME", kItemHead, "STATUS", "TIME TAKEN", "TEXT"}};
    for (const history::Row& row : rows) {
        const std::string time = LocalDate(row.time);
        const std::string words =
            text::Escaped(row.text) + (row.cause.empty() ? "" : " (" + text::Escaped(row.cause) + ")");
        if (row.kind == history::Kind::kGap) {
            const std::string from = row.begin ? " from " + LocalDate(*row.begin) : "";
            table.push_back({time, "-", "gap", "-", "not observed" + from + ": " + words});
        } else if (row.kind == history::Kind::kResult) {
            table.push_back({time, text::Escaped(row.item), text::Escaped(row.status),
                             row.duration ? std::to_string(row.duration->count()) + " ms" : "-", words});
        } else {
            table.push_back(
                {time, "-", text::Escaped(row.status), "-", row.kind == history::Kind::kServer ? "the server" : ""});
        }
    }
    return text::Table(table);
}

std::string HistoryJson(const std::vector<history::Row>& rows) {
    auto events = json::Value::Array();
    for (const history::Row& row : rows) {
        events.Add(history::JsonOf(row));
    }
    return json::Value::Object().Put("events", std::move(events)).Print();
}

std::string UnseenItemText(std::string_view item) {
    return client::UnknownItemText(item) + ", as far as the owners on the bus show";
}

std::string StateTable(std::string_view item, ShownState state) {
    const std::string word = WordOf(state);
    return text::Table(
        {{kItemHead, "STATE"},
         {text::Escaped(item), state == ShownState::kNotIdle ? word + " (running, or holding a result)" : word}});
}

std::string StateJson(std::string_view item, ShownState state) {
    auto json = json::Value::Object();
    json.Text("item", item).Text("state", WordOf(state));
    if (state == ShownState::kUnknown) {
        json.Text("hint", UnseenItemText(item));
    }
    return json.Print();
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

std::string ServerEventLine(TimePoint time, bool present) {
    return LocalTime(time) + (present ? "  server started" : "  server left");
}

std::string ServerEventJson(TimePoint time, bool present) {
    return json::Value::Object().Text("time", UtcTime(time)).Text("event", "server").Flag("present", present).Print();
}

}  // namespace ominspect::ctl
