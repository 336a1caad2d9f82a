// SQLite databases: a thin cover that owns what it opens and makes every failure a value.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include "common/error.h"

namespace ominspect::sqlite {

// The error of a database in SQLite's words; `number` is its extended result code instead of an errno(3).
Error ErrorOf(sqlite3* database);

// A prepared statement. Parameters and columns count from 1 and 0, as in SQLite.
class Statement {
public:
    Statement& Bind(int index, std::int64_t number);
    Statement& Bind(int index, std::string_view text);
    Statement& BindNull(int index);
    Statement& Bind(int index, const std::optional<std::int64_t>& number);
    Statement& Bind(int index, const std::optional<std::string>& text);

    // The next row: false at the end, after which it starts anew with no parameter set.
    Result<bool> Step();

    std::int64_t Number(int column) const { return sqlite3_column_int64(statement_.get(), column); }
    std::string Text(int column) const;
    bool IsNull(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }

    // Ends the reading before the last row.
    void Reset();

private:
    friend class Database;
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { (void)sqlite3_finalize(statement); }
    };
    explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}

    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// A connection; used by one thread at a time. It must outlive its statements.
class Database {
public:
    // `flags` are those of sqlite3_open_v2.
    static Result<Database> Open(const std::string& path, int flags);

    Result<Statement> Prepare(std::string_view sql);

    // Runs statements that give no rows.
    std::optional<Error> Execute(const std::string& sql);

    // The one number that a statement gives.
    Result<std::int64_t> Ask(std::string_view sql);

    sqlite3* Get() { return database_.get(); }

private:
    struct Close {
        void operator()(sqlite3* database) const { (void)sqlite3_close_v2(database); }
    };
    explicit Database(sqlite3* database) : database_(database) {}

    std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace ominspect::sqlite
