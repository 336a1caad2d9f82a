// The JSON documents that a terminal publishes. A document's time is that of what it tells, so that it is the same
// whenever it is sent.
#pragma once

#include <cstdint>
#include <string>

#include "common/history_file.h"
#include "model/picture.h"

namespace ominspect::gateway::mqtt {

// "online", "offline" (ended in order) or "lost" (told by the broker); `since` is when the connection was begun.
std::string StatusDocument(const char* state, const std::string& terminal, TimePoint since);

// The same with what is known of the server.
std::string OnlineDocument(const std::string& terminal, TimePoint since, const ServerView& server);

// {"item","isConfigured","level","mode","hasOwner","lastResult"}; what is not known is left out.
std::string ItemDocument(const ItemView& item);

std::string EventDocument(const history::Row& row);

// What is missing between two events: {"kind":"gap","text","missing":{"first","last"},"time"}, without a number.
std::string MissingDocument(std::uint64_t first, std::uint64_t last, TimePoint time);

}  // namespace ominspect::gateway::mqtt
