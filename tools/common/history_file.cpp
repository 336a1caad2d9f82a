// Reading only: the gateway's write-ahead log lets readers in while it writes.
#include "common/history_file.h"

#include <algorithm>
#include <utility>

#include "common/text.h"

namespace ominspect::history {
namespace {

constexpr const char* kColumns = "SELECT seq,time,kind,item,status,text,begin,duration,cause FROM events";

Row RowOf(const sqlite::Statement& statement) {
    Row row;
    row.seq = static_cast<std::uint64_t>(statement.Number(0));
    row.time = TimeOfMs(statement.Number(1));
    row.kind = static_cast<Kind>(statement.Number(2));
    row.item = statement.Text(3);
    row.status = statement.Text(4);
    row.text = statement.Text(5);
    if (!statement.IsNull(6)) {
        row.begin = TimeOfMs(statement.Number(6));
    }
    if (!statement.IsNull(7)) {
        row.duration = std::chrono::milliseconds(statement.Number(7));
    }
    row.cause = statement.Text(8);
    return row;
}

std::string SqlOf(const Filter& filter) {
    std::string sql = std::string(kColumns) + " WHERE 1";
    if (filter.item) {
        sql += " AND (item=?1 OR kind IN (2,4))";
    }
    if (filter.status) {
        sql += " AND status=?2";
    }
    if (filter.since) {
        sql += " AND time>=?3";
    }
    if (filter.until) {
        sql += " AND time<=?4";
    }
    if (filter.before) {
        sql += " AND seq<?5";
    }
    if (filter.after) {
        sql += " AND seq>?6";
    }
    return sql + (filter.isOldestFirst ? " ORDER BY seq LIMIT ?7" : " ORDER BY seq DESC LIMIT ?7");
}

std::optional<std::int64_t> Signed(std::optional<std::uint64_t> number) {
    return number ? std::optional(static_cast<std::int64_t>(*number)) : std::nullopt;
}

std::optional<std::int64_t> Ms(std::optional<TimePoint> time) {
    return time ? std::optional(MsOf(*time)) : std::nullopt;
}

}  // namespace

const char* WordOf(Kind kind) {
    switch (kind) {
        case Kind::kResult:
            return "result";
        case Kind::kServer:
            return "server";
        case Kind::kBusy:
            return "busy";
        case Kind::kGap:
            break;
    }
    return "gap";
}

json::Value JsonOf(const Row& row, const char* kind) {
    auto json = json::Value::Object();
    if (row.seq > 0) {
        json.Number("seq", row.seq);
    }
    json.Text("time", UtcTime(row.time)).Text("kind", kind == nullptr ? WordOf(row.kind) : kind);
    for (const auto& [name, value] :
         {std::pair("item", &row.item), std::pair("status", &row.status), std::pair("text", &row.text)}) {
        if (!value->empty() || row.kind == Kind::kResult) {
            json.Text(name, *value);
        }
    }
    if (row.begin) {
        json.Text("begin", UtcTime(*row.begin));
    }
    if (row.duration) {
        json.Number("durationMs", static_cast<std::uint64_t>(std::max<std::int64_t>(0, row.duration->count())));
    }
    if (!row.cause.empty()) {
        json.Text("cause", row.cause);
    }
    return json;
}

bool IsFinal(const std::string& status) {
    return !status.empty() && status != "running" && status != "idle";
}

std::int64_t MsOf(TimePoint time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

TimePoint TimeOfMs(std::int64_t ms) {
    return TimePoint(std::chrono::milliseconds(ms));
}

std::string BusName(const char* address) {
    return address == nullptr || *address == '\0' ? "system" : text::ToUtf8(address);
}

Result<std::unique_ptr<Reader>> Reader::Open(const std::string& path) {
    auto database = sqlite::Database::Open(path, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX);
    if (!database) {
        return database.Failure();
    }
    const auto version = database->Ask("PRAGMA user_version");
    if (!version) {
        return version.Failure();
    }
    if (*version < 1 || *version > kSchemaVersion) {
        return OtherError("the history has the form " + std::to_string(*version) + ", and this program knows " +
                          std::to_string(kSchemaVersion));
    }
    return std::unique_ptr<Reader>(new Reader(std::move(*database)));
}

Result<std::vector<Row>> Reader::Find(const Filter& filter) {
    auto statement = database_.Prepare(SqlOf(filter));
    if (!statement) {
        return statement.Failure();
    }
    statement->Bind(1, filter.item).Bind(2, filter.status).Bind(3, Ms(filter.since)).Bind(4, Ms(filter.until));
    statement->Bind(5, Signed(filter.before)).Bind(6, Signed(filter.after));
    statement->Bind(7, static_cast<std::int64_t>(filter.limit));
    std::vector<Row> rows;
    for (;;) {
        const auto row = statement->Step();
        if (!row) {
            return row.Failure();
        }
        if (!*row) {
            return rows;
        }
        rows.push_back(RowOf(*statement));
    }
}

Result<std::optional<Row>> Reader::LastResult(const std::string& item) {
    if (!last_) {
        auto statement = database_.Prepare(std::string(kColumns) +
                                           " WHERE item=?1 AND kind=1 AND status NOT IN ('','idle','running')"
                                           " ORDER BY seq DESC LIMIT 1");
        if (!statement) {
            return statement.Failure();
        }
        last_ = std::move(*statement);
    }
    const auto row = last_->Bind(1, std::string_view(item)).Step();
    if (!row) {
        return row.Failure();
    }
    std::optional<Row> found;
    if (*row) {
        found = RowOf(*last_);
        last_->Reset();
    }
    return found;
}

// The index gives the names one after the other without a look at the rows between them.
Result<std::vector<Row>> Reader::LastResults() {
    auto names = database_.Prepare(
        "WITH RECURSIVE names(item) AS (SELECT min(item) FROM events WHERE item>''"
        " UNION ALL SELECT (SELECT min(item) FROM events WHERE item>names.item) FROM names"
        " WHERE names.item IS NOT NULL)"
        " SELECT item FROM names WHERE item IS NOT NULL");
    if (!names) {
        return names.Failure();
    }
    std::vector<Row> rows;
    for (;;) {
        const auto name = names->Step();
        if (!name) {
            return name.Failure();
        }
        if (!*name) {
            return rows;
        }
        const auto row = LastResult(names->Text(0));
        if (!row) {
            return row.Failure();
        }
        if (*row) {
            rows.push_back(**row);
        }
    }
}

Result<Bounds> Reader::Extent() {
    auto statement = database_.Prepare("SELECT min(seq),max(seq),count(*) FROM events");
    if (!statement) {
        return statement.Failure();
    }
    const auto row = statement->Step();
    if (!row) {
        return row.Failure();
    }
    return Bounds{static_cast<std::uint64_t>(statement->Number(0)), static_cast<std::uint64_t>(statement->Number(1)),
                  static_cast<std::uint64_t>(statement->Number(2))};
}

Result<std::string> Reader::Bus() {
    auto statement = database_.Prepare("SELECT value FROM meta WHERE key='bus'");
    if (!statement) {
        return statement.Failure();
    }
    const auto row = statement->Step();
    if (!row) {
        return row.Failure();
    }
    return *row ? statement->Text(0) : std::string();
}

}  // namespace ominspect::history
