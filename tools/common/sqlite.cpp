// A parameter that cannot be bound (no memory) is NULL, which the schema refuses where it matters.
#include "common/sqlite.h"

namespace ominspect::sqlite {
namespace {

constexpr int kBusyMs = 2000;

}  // namespace

Error ErrorOf(sqlite3* database) {
    return {ErrorCode::kInternal, sqlite3_errmsg(database), sqlite3_extended_errcode(database)};
}

Statement& Statement::Bind(int index, std::int64_t number) {
    (void)sqlite3_bind_int64(statement_.get(), index, number);
    return *this;
}

Statement& Statement::Bind(int index, std::string_view text) {
    (void)sqlite3_bind_text(statement_.get(), index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return *this;
}

Statement& Statement::BindNull(int index) {
    (void)sqlite3_bind_null(statement_.get(), index);
    return *this;
}

Statement& Statement::Bind(int index, const std::optional<std::int64_t>& number) {
    return number ? Bind(index, *number) : BindNull(index);
}

Statement& Statement::Bind(int index, const std::optional<std::string>& text) {
    return text ? Bind(index, std::string_view(*text)) : BindNull(index);
}

Result<bool> Statement::Step() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW) {
        return true;
    }
    std::optional<Error> error;
    if (code != SQLITE_DONE) {
        error = ErrorOf(sqlite3_db_handle(statement_.get()));
    }
    Reset();
    if (error) {
        return *error;
    }
    return false;
}

std::string Statement::Text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    return text == nullptr
               ? ""
               : std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

void Statement::Reset() {
    (void)sqlite3_reset(statement_.get());
    (void)sqlite3_clear_bindings(statement_.get());
}

Result<Database> Database::Open(const std::string& path, int flags) {
    sqlite3* raw = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &raw, flags, nullptr);
    Database database(raw);  // also a failed one must be closed
    if (code != SQLITE_OK) {
        return raw == nullptr ? OtherError("no memory for a database") : ErrorOf(raw);
    }
    (void)sqlite3_busy_timeout(raw, kBusyMs);
    return database;
}

Result<Statement> Database::Prepare(std::string_view sql) {
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v3(Get(), sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &raw, nullptr) !=
        SQLITE_OK) {
        return ErrorOf(Get());
    }
    return Statement(raw);
}

std::optional<Error> Database::Execute(const std::string& sql) {
    if (sqlite3_exec(Get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        return ErrorOf(Get());
    }
    return std::nullopt;
}

Result<std::int64_t> Database::Ask(std::string_view sql) {
    auto statement = Prepare(sql);
    if (!statement) {
        return statement.Failure();
    }
    const auto row = statement->Step();
    if (!row) {
        return row.Failure();
    }
    if (!*row) {
        return OtherError("no answer from the database");
    }
    return statement->Number(0);
}

}  // namespace ominspect::sqlite
