// Where the answers and complaints of the commands go.
#pragma once

#include <string>
#include <string_view>

#include "exit_code.h"
#include "history.h"
#include "ominspect/client/error.h"

namespace ominspect::ctl {

// One line of the answer, on standard output, at once.
void PrintLine(const std::string& line);

// Says on standard error what is wrong; with an item, whose name is shown escaped.
using ominspect::Complain;
void Complain(std::string_view item, const client::Error& error);

// Saves what the command has seen; a complaint when that cannot be done, which fails no command.
void SaveHistory(History& history);

// What a command that failed does: complains, prints the error as a document when that is wanted, and gives the exit
// code.
ExitCode Fail(std::string_view item, const client::Error& error, bool json);
ExitCode Fail(const client::Error& error, bool json);

}  // namespace ominspect::ctl
