// The JSON documents of the gateway's state.
#pragma once

#include <map>
#include <string>

#include "common/json.h"
#include "model/event.h"
#include "model/parts.h"
#include "model/picture.h"

namespace ominspect::gateway {

json::Value ItemJson(const ItemView& item, TimePoint now);

// All items, the server, and the processes that do not say what they own.
json::Value StateJson(const State& state, TimePoint now);

json::Value PartsJson(const std::map<std::string, Part>& parts);

// The data of an event as its listeners get it.
std::string EventJson(const Event& event);

}  // namespace ominspect::gateway
