// The form of the history's database, and how an older one becomes the present one.
#pragma once

#include <span>

#include "common/sqlite.h"

namespace ominspect::gateway {

// The statements that lead from each form to the next; the first ones make form 1 of an empty database.
std::span<const char* const> SchemaSteps();

// Takes the steps that are missing, each whole or not at all. A database of a newer form stays as it is and is an
// error.
std::optional<Error> Migrate(sqlite::Database& database, std::span<const char* const> steps = SchemaSteps());

}  // namespace ominspect::gateway
