// Requests to the inspection server and its answers. Texts are bytes from outside, not necessarily UTF-8.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ominspect/client/error.h"

#pragma GCC visibility push(default)

namespace ominspect::client {

// A request for one item. `cmd` is its argument; "stop" stops the item and "done" resets it to "idle".
struct Request {
    std::string item;
    std::string cmd;
};

// How the server handles a request.
enum class RequestKind {
    kRun,     // the item runs: any number of results with the status "running", then the last one
    kCommand  // "stop" or "done": exactly one result, which may say "running" too
};
RequestKind KindOf(const Request& request);

// An item's result as its record holds it.
struct ItemResult {
    std::string name;
    std::string status;  // "idle", "running", "success", "fail", or the owner's own word
    std::string text;
};

// Whether the result says that no owner has registered the item: "fail", "no support".
bool IsUnknownItem(const ItemResult& result);

// A text that says so, with the item's name unchanged.
std::string UnknownItemText(std::string_view item);

// Whether a run in the background was started by the request.
enum class RunOrigin {
    kUnknown,  // the server has not begun it yet, as far as is known
    kOwn,      // it began after it was asked for
    kJoined    // the server had a run of the item already, perhaps with another `cmd`; the result is that run's
};

// The reply to a synchronous run.
struct RunReply {
    ItemResult result;
    bool isPending;  // the item runs (status "running") for another client, or its owner reports later; the server then
                     // counts this run until the owner takes the item back
};

// A value that a run has measured, by the convention of the monitoring plugins.
struct PerfValue {
    std::string label;
    double value = 0;
    std::string
        unit;  // "s", "ms", "us", "%", "B", "KB", "MB", "GB", "TB", "c" for what only rises, another one, or empty
    std::string warn;  // a range of the convention, such as "10" or "@5:10"; may be empty, as may the next
    std::string crit;
    std::optional<double> min;
    std::optional<double> max;
};

// What the last run of an item has measured; no values: nothing.
struct PerfData {
    std::string item;
    std::vector<PerfValue> values;  // at most 64
};

enum class ItemState {
    kNotIdle,       // it runs, or holds a result
    kIdleOrUnknown  // it waits for its first run, was reset, or the server does not know it
};

// An item that the server's configuration names.
struct ConfiguredItem {
    std::string name;
    std::string level;  // "error" or "warn"
    bool isSync;        // its owner answers at once
};

struct Catalogue {
    std::vector<ConfiguredItem> items;  // in the order of the configuration, at most 256
    std::uint32_t total;                // the number of configured items
};

// A process that owns an item.
struct ItemOwner {
    std::string process;
    std::chrono::milliseconds timeLimit;  // of a run whose result it reports later; 0: none
    bool isRegistered = false;            // with the server that runs now; after a restart not at once
};

// An item that the server's configuration names, or that a process owns, or both.
struct Item {
    std::string name;
    std::optional<ConfiguredItem> configuration;
    std::vector<ItemOwner> owners;  // the server asks the one that registered first
};

struct Inventory {
    std::vector<Item> items;          // those of the configuration in its order, then the others by name
    std::uint32_t configured;         // the number of configured items, of which at most 256 are listed
    std::vector<std::string> silent;  // processes that did not answer in time
};

using SystemTime = std::chrono::system_clock::time_point;

// One item of a group's record.
struct GroupItem {
    ItemResult result;                // all empty: the group was stopped before the item's turn
    bool isMalformed = false;         // the owner gave a text that does not end; it is cut at the end of its field
    std::optional<SystemTime> start;  // none: it never ran
    std::optional<SystemTime> end;    // none: it never ended
};

// The result of a group run.
struct GroupRecord {
    std::uint32_t taskId;
    std::vector<GroupItem> items;  // in the order of the request
};

// The most items of one group request.
constexpr std::size_t kGroupSlots = 32;

// Whether an item name can be sent: 1 to 31 bytes without NUL. The error says what is wrong.
std::optional<Error> CheckItemName(std::string_view item);

// Whether a request can be sent: the same, and a cmd of at most 127 bytes without NUL.
std::optional<Error> CheckRequest(const Request& request);

}  // namespace ominspect::client

#pragma GCC visibility pop
