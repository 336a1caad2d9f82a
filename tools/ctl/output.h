// What ominspectctl prints: tables for people, JSON for programs. Pure functions; every text ends without a line
// end, is valid UTF-8 and shows names and texts from outside escaped.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "ominspect/client/types.h"

namespace ominspect::ctl {

using TimePoint = std::chrono::system_clock::time_point;

// One item's run, with the time from request to reply.
struct RunRow {
    client::RunReply reply;
    std::chrono::milliseconds duration;
};

// The table of a run, line by line as the results come: its heads, then a row per item. `nameWidth` is that of the
// longest item name as shown.
std::size_t NameWidth(const std::vector<std::string>& items);
std::string RunHead(std::size_t nameWidth);
std::string RunLine(std::size_t nameWidth, const RunRow& row);
// {"item","status","text","durationMs"}, and "hint" where there is one.
std::string RunJson(const RunRow& row);
// {"results":[...]}: one document of rows that are JSON already.
std::string RunDocument(const std::vector<std::string>& rows);

std::string StateTable(std::string_view item, client::ItemState state);
// {"item","state"}; the state is "idle" or "not idle".
std::string StateJson(std::string_view item, client::ItemState state);

// {"item","error":{"code","text"}}
std::string ErrorJson(std::string_view item, const client::Error& error);

// One event on one line: local time of day to the millisecond for people, UTC in JSON.
std::string RunEventLine(TimePoint time, const client::ItemResult& result);
std::string RunEventJson(TimePoint time, const client::ItemResult& result);
std::string BusyEventLine(TimePoint time, bool busy);
std::string BusyEventJson(TimePoint time, bool busy);

}  // namespace ominspect::ctl
