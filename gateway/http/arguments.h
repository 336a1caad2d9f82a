// What a request is given beside its path: its query and its content. An error says what is wrong with it, for whoever
// asked.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "actions/operations.h"
#include "common/error.h"
#include "common/history_file.h"
#include "common/json.h"
#include "http/message.h"

namespace ominspect::gateway {

std::optional<std::uint64_t> NumberOf(const std::string& text);

// Decodes the values of the query.
std::optional<Error> DecodeQuery(Request& request);

// Which rows of the history are wanted.
Result<history::Filter> FilterOf(const Request& request);

// The content, an object; an empty one counts as that.
Result<json::Value> ContentOf(const Request& request);

// Fills in what a run may be given.
std::optional<Error> ReadRun(json::View content, Order& order);

}  // namespace ominspect::gateway
