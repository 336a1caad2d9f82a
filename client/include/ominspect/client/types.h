// What requesters ask of the inspection server and get from it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ominspect/client/error.h"

namespace ominspect::client {

// An item's result as its record holds it: bytes from outside, not necessarily UTF-8.
struct ItemResult {
    std::string name;
    std::string status;  // "idle", "running", "success", "fail", or the owner's own word
    std::string text;
};

// What the reply to a synchronous run says.
enum class RunOutcome {
    kFinal,       // the item's result
    kPending,     // the item runs (status "running") and its owner reports later: running it again gives the result
    kUnknownItem  // "fail", "no support": no owner has registered the item
};

struct RunReply {
    RunOutcome outcome;
    ItemResult result;
};

enum class ItemState {
    kNotIdle,       // it runs, or holds a result
    kIdleOrUnknown  // it waits for its first run, was reset, or the server does not know it
};

// Whether an item name can be sent: 1 to 31 bytes without NUL. The error says what is wrong.
std::optional<Error> CheckItemName(std::string_view item);

// Whether a request can be sent: the same, and a cmd of at most 127 bytes without NUL.
std::optional<Error> CheckRequest(std::string_view item, std::string_view cmd);

}  // namespace ominspect::client
