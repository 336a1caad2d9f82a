// Checks an XML file against its schema, by xmllint(1): the validator is a program, so that nobody who only reads a
// file loads the libraries that it takes.
#pragma once

#include <string>
#include <vector>

#include "common/error.h"

namespace ominspect {

// Where the file breaks the schema, a line each: "line 3: ...", in the validator's words. At most some hundred. The
// error says why the file could not be checked: no validator, no schema, no file.
Result<std::vector<std::string>> SchemaErrors(const std::string& schema, const std::string& file);

}  // namespace ominspect
