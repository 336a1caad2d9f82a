// Where the answers and complaints of the commands go.
#pragma once

#include <string>
#include <string_view>

#include "exit_code.h"
#include "history.h"
#include "ominspect/client/session.h"

namespace ominspect::ctl {

// One line of the answer, on standard output, at once.
void PrintLine(const std::string& line);

// Says on standard error what is wrong; with an item, whose name is shown escaped.
using ominspect::Complain;
void Complain(std::string_view item, const client::Error& error);

// Saves what the command has seen; a complaint when that cannot be done, which fails no command.
void SaveHistory(History& history);

// Whether a process on the bus shows the item as its own. The server itself does not say which items it knows, and an
// owner without the engine client library shows none.
client::Result<bool> HasOwner(client::Session& session, std::string_view item, const client::Limit& limit);

// What a command that failed does: complains, prints the error as a document when that is wanted, and gives the exit
// code.
ExitCode Fail(std::string_view item, const client::Error& error, bool json);
ExitCode Fail(const client::Error& error, bool json);

}  // namespace ominspect::ctl
