// Released steps are never changed: a new form is a new step.
#include "history/schema.h"

#include <array>

#include "common/history_file.h"

namespace ominspect::gateway {
namespace {

constexpr std::array kSteps{
    "CREATE TABLE events(seq INTEGER PRIMARY KEY, time INTEGER NOT NULL, kind INTEGER NOT NULL,"
    " item TEXT NOT NULL, status TEXT NOT NULL, text TEXT NOT NULL, begin INTEGER, duration INTEGER,"
    " cause TEXT NOT NULL);"
    "CREATE INDEX events_item ON events(item, seq);"
    "CREATE INDEX events_time ON events(time);"
    "CREATE INDEX events_change ON events(kind, seq) WHERE kind IN (2,4);"
    "CREATE TABLE meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;",
};
static_assert(kSteps.size() == history::kSchemaVersion);

}  // namespace

std::span<const char* const> SchemaSteps() {
    return kSteps;
}

std::optional<Error> Migrate(sqlite::Database& database, std::span<const char* const> steps) {
    const auto version = database.Ask("PRAGMA user_version");
    if (!version) {
        return version.Failure();
    }
    if (*version < 0 || static_cast<std::size_t>(*version) > steps.size()) {
        return OtherError("the history has the form " + std::to_string(*version) + ", and this program knows " +
                          std::to_string(steps.size()));
    }
    for (auto next = static_cast<std::size_t>(*version); next < steps.size(); ++next) {
        const std::string step = std::string("BEGIN IMMEDIATE;") + steps[next] +
                                 ";PRAGMA user_version=" + std::to_string(next + 1) + ";COMMIT";
        if (auto error = database.Execute(step)) {
            (void)database.Execute("ROLLBACK");
            return error;
        }
    }
    return std::nullopt;
}

}  // namespace ominspect::gateway
