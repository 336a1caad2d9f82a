// Checks an XML file against its schema, by xmllint(1): the validator is a program, so that nobody who only reads a
// file loads the libraries that it takes.
#pragma once

#include <string>
#include <vector>

#include "common/error.h"

namespace ominspect {

// What is not as the schema has it, a line each: "line 3: ...", as the validator says it. At most some hundred. The
// error says why nothing can be told: no validator, no schema, no file.
Result<std::vector<std::string>> SchemaErrors(const std::string& schema, const std::string& file);

}  // namespace ominspect
