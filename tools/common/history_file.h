// What ominspect-gateway remembers, read from its database by whoever may: one file, written by the gateway alone.
//
//   events  seq      rises with every event, also over restarts of the gateway
//           time     of the event, ms since the epoch; of a result and of a gap its end
//           kind     1 result, 2 server, 3 busy, 4 gap
//           item, status, text, begin, duration (ms), cause
//   meta    bus      the message bus that is watched: its address, or "system"
//           watched  until when it is known to have been watched, ms
//
// A server event has the status "up" or "away", a busy event "busy" or "idle". Texts are valid UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/error.h"
#include "common/json.h"
#include "common/sqlite.h"
#include "common/times.h"

namespace ominspect::history {

// Where the gateway keeps it unless its configuration says otherwise.
constexpr const char* kDefaultPath = "/var/lib/ominspect-gateway/history.db";

// The form that this reads and the gateway writes; the database's user_version.
constexpr int kSchemaVersion = 1;

enum class Kind : int { kResult = 1, kServer = 2, kBusy = 3, kGap = 4 };
const char* WordOf(Kind kind);  // "result", "server", "busy", "gap"

struct Row {
    std::uint64_t seq = 0;
    TimePoint time;
    Kind kind = Kind::kResult;
    std::string item;
    std::string status;
    std::string text;
    std::optional<TimePoint> begin;
    std::optional<std::chrono::milliseconds> duration;
    std::string cause;  // who asked for a run, where that is known
};

// {"seq","time","kind","item","status","text","begin","durationMs","cause"}; members that the row lacks are left out.
// `kind` stands in for the row's own word.
json::Value JsonOf(const Row& row, const char* kind = nullptr);

// Whether a status is that of a result: not "running", "idle" or empty.
bool IsFinal(const std::string& status);

// Rows that are looked for; a gap or a change of the server belongs to every item.
struct Filter {
    std::optional<std::string> item;
    std::optional<std::string> status;
    std::optional<TimePoint> since;
    std::optional<TimePoint> until;
    std::optional<std::uint64_t> before;  // sequence number
    std::optional<std::uint64_t> after;
    bool isOldestFirst = false;
    std::size_t limit = 100;
};

struct Bounds {
    std::uint64_t first = 0;  // 0: empty
    std::uint64_t last = 0;
    std::uint64_t count = 0;
};

std::int64_t MsOf(TimePoint time);
TimePoint TimeOfMs(std::int64_t ms);

// The name of the bus that a process is on, as meta has it; empty texts mean the system bus.
std::string BusName(const char* address);

// Used by one thread at a time. A file of a newer form is refused.
class Reader {
public:
    static Result<std::unique_ptr<Reader>> Open(const std::string& path);

    Result<std::vector<Row>> Find(const Filter& filter);
    Result<std::optional<Row>> LastResult(const std::string& item);

    // Of every item that is there.
    Result<std::vector<Row>> LastResults();
    Result<Bounds> Extent();
    Result<std::string> Bus();

private:
    explicit Reader(sqlite::Database database) : database_(std::move(database)) {}

    sqlite::Database database_;
    std::optional<sqlite::Statement> last_;
};

}  // namespace ominspect::history
