// How operations and collections tell how they go on, also without memory.
#pragma once

#include <functional>
#include <string>

#include "model/feed.h"

namespace ominspect::gateway {

// Posts an event of this kind with the document that is asked for. False: there was no memory for it.
bool TryToTell(Feed& feed, EventKind kind, const std::function<std::string()>& document);

// The same for news that comes once and that somebody waits for: tries for seconds, then has a gap told in its place.
void TellInAnyCase(Feed& feed, EventKind kind, const std::function<std::string()>& document);

}  // namespace ominspect::gateway
