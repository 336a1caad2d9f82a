// What ominspectctl prints: columns for people, documents through cJSON for programs.
#include "output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <memory>
#include <vector>

#include <cjson/cJSON.h>

#include "text/text.h"

namespace ominspect::ctl {
namespace {

using client::RunOutcome;

// ---- tables ----

std::size_t WidthOf(std::string_view utf8) {
    return static_cast<std::size_t>(std::count_if(
        utf8.begin(), utf8.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80; }));
}

std::string Padded(std::string text, std::size_t width) {
    const std::size_t own = WidthOf(text);
    return own < width ? text.append(width - own, ' ') : text;
}

// Rows of equally many cells; the last column is not padded.
std::string Table(const std::vector<std::vector<std::string>>& rows) {
    std::string out;
    for (const auto& row : rows) {
        if (!out.empty()) out += '\n';
        for (std::size_t column = 0; column < row.size(); ++column) {
            if (column + 1 == row.size()) {
                out += row[column];
                continue;
            }
            std::size_t width = 0;
            for (const auto& other : rows) width = std::max(width, WidthOf(other[column]));
            out += Padded(row[column], width) + "  ";
        }
    }
    return out;
}

constexpr const char* kItemHead = "ITEM";
constexpr std::size_t kStatusWidth = 8;  // holds the usual words
constexpr std::size_t kTimeWidth = 9;

// A row of the table of a run, whose widths are known before its texts are.
std::string Columns(std::size_t nameWidth, const std::string& name, const std::string& status, const std::string& time,
                    const std::string& text) {
    const std::string blanks(WidthOf(time) < kTimeWidth ? kTimeWidth - WidthOf(time) : 0, ' ');
    return Padded(name, nameWidth) + "  " + Padded(status, kStatusWidth) + "  " + blanks + time + "  " + text;
}

// ---- JSON ----

struct JsonDelete {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDelete>;

struct Member {
    const char* name;
    std::string_view text;
};

Json Object(std::initializer_list<Member> members) {
    Json object(cJSON_CreateObject());
    for (const Member& member : members) {
        cJSON_AddStringToObject(object.get(), member.name, text::ToUtf8(member.text).c_str());
    }
    return object;
}

std::string Print(const Json& json) {
    char* raw = cJSON_PrintUnformatted(json.get());
    std::string out = raw == nullptr ? "" : raw;
    cJSON_free(raw);
    return out;
}

// ---- times ----

int MillisecondsOf(TimePoint time) {
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
    return static_cast<int>(sinceEpoch.count() % 1000);
}

std::string Formatted(const char* format, const std::tm& fields, TimePoint time, const char* end) {
    std::array<char, 40> seconds{};
    std::array<char, 64> out{};
    (void)std::strftime(seconds.data(), seconds.size(), format, &fields);
    (void)std::snprintf(out.data(), out.size(), "%s.%03d%s", seconds.data(), MillisecondsOf(time), end);
    return out.data();
}

std::string LocalTime(TimePoint time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields{};
    (void)localtime_r(&seconds, &fields);
    return Formatted("%H:%M:%S", fields, time, "");
}

std::string UtcTime(TimePoint time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields{};
    (void)gmtime_r(&seconds, &fields);
    return Formatted("%Y-%m-%dT%H:%M:%S", fields, time, "Z");
}

// ---- words ----

constexpr const char* kPendingHint = "the owner reports later; 'ominspectctl run' again shows the result";
constexpr const char* kUnknownHint = "unknown item: no owner has registered it";

const char* HintOf(RunOutcome outcome) {
    switch (outcome) {
        case RunOutcome::kPending:
            return kPendingHint;
        case RunOutcome::kUnknownItem:
            return kUnknownHint;
        case RunOutcome::kFinal:
            break;
    }
    return nullptr;
}

std::string TextOf(const client::RunReply& reply) {
    std::string shown = text::Escaped(reply.result.text);
    switch (reply.outcome) {
        case RunOutcome::kPending:
            return std::string("running: ") + kPendingHint;
        case RunOutcome::kUnknownItem:
            return shown + " (" + kUnknownHint + ")";
        case RunOutcome::kFinal:
            break;
    }
    return shown;
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
    const client::ItemResult& result = row.reply.result;
    return Columns(nameWidth, text::Escaped(result.name), text::Escaped(result.status),
                   std::to_string(row.duration.count()) + " ms", TextOf(row.reply));
}

std::string RunJson(const RunRow& row) {
    const client::ItemResult& result = row.reply.result;
    const Json json = Object({{"item", result.name}, {"status", result.status}, {"text", result.text}});
    cJSON_AddNumberToObject(json.get(), "durationMs", static_cast<double>(row.duration.count()));
    if (const char* hint = HintOf(row.reply.outcome)) cJSON_AddStringToObject(json.get(), "hint", hint);
    return Print(json);
}

std::string RunDocument(const std::vector<std::string>& rows) {
    std::string document = R"({"results":[)";
    for (const std::string& row : rows) document += (&row == rows.data() ? "" : ",") + row;
    return document + "]}";
}

std::string StateTable(std::string_view item, client::ItemState state) {
    const bool idle = state == client::ItemState::kIdleOrUnknown;
    return Table(
        {{"ITEM", "STATE"},
         {text::Escaped(item), idle ? "idle (or unknown to the server)" : "not idle (running, or holding a result)"}});
}

std::string StateJson(std::string_view item, client::ItemState state) {
    return Print(Object({{"item", item}, {"state", state == client::ItemState::kIdleOrUnknown ? "idle" : "not idle"}}));
}

std::string ErrorJson(std::string_view item, const client::Error& error) {
    const Json json = Object({{"item", item}});
    Json content = Object({{"code", client::ErrorWord(error.code)}, {"text", error.text}});
    cJSON_AddItemToObject(json.get(), "error", content.release());
    return Print(json);
}

std::string RunEventLine(TimePoint time, const client::ItemResult& result) {
    return LocalTime(time) + "  run   " + Padded(text::Escaped(result.name), 31) + "  " +
           Padded(text::Escaped(result.status), 8) + "  " + text::Escaped(result.text);
}

std::string RunEventJson(TimePoint time, const client::ItemResult& result) {
    return Print(Object({{"time", UtcTime(time)},
                         {"event", "run"},
                         {"item", result.name},
                         {"status", result.status},
                         {"text", result.text}}));
}

std::string BusyEventLine(TimePoint time, bool busy) {
    return LocalTime(time) + (busy ? "  busy" : "  idle");
}

std::string BusyEventJson(TimePoint time, bool busy) {
    return Print(Object({{"time", UtcTime(time)}, {"event", busy ? "busy" : "idle"}}));
}

}  // namespace ominspect::ctl
