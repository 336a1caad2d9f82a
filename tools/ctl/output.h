// What ominspectctl prints: tables for people, JSON for programs. Pure functions; every text ends without a line
// end, is valid UTF-8 and shows names and texts from outside escaped.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "ominspect/client/types.h"

namespace ominspect::ctl {

using TimePoint = std::chrono::system_clock::time_point;

// Two lines: heads and the item's row.
std::string RunTable(const client::RunReply& reply);
// {"item","status","text"}, and "hint" where there is one.
std::string RunJson(const client::RunReply& reply);

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
