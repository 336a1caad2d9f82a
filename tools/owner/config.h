// The owner's configuration: which command is which inspection item. Strictly validated.
//
//   <Owner process="sysowner" maxParallel="16">
//       <Item name="load" timeout="10" isSync="true">
//           <Command>/usr/lib/nagios/plugins/check_load</Command>
//           <Arg>-w</Arg>
//           <Arg>5,4,3</Arg>
//       </Item>
//   </Owner>
//
// Owner: `process` is the process name on the bus, 1 to 15 bytes; `maxParallel` (1 to 64, default 16) bounds how
// many asynchronous commands run at the same time.
// Item: `name`, 1 to 31 bytes, each once in a file; `timeout` in whole seconds (default 30; at most 86400, and at
// most 270 for a synchronous item, since the server waits 300 s for its answer); `isSync` "true" or "false"
// (default). Command: an absolute path, run without a shell. Arg, any number up to 64, in order: exactly the
// text between the tags, blanks included. <Arg/> is an empty argument; an argument of blanks only begins with
// &#32;.
// Anything else in the file, except comments, is an error.
#pragma once

#include <string>
#include <string_view>

#include "common/error.h"
#include "items/config.h"

namespace ominspect::owner {

using items::ItemConfig;
using items::OwnerConfig;

// Parses a configuration text. The error of a mistake is "line N: what is wrong".
Result<OwnerConfig> ParseConfig(std::string_view xml);

// The same for a regular file of at most 1 MiB; the error begins with the path.
Result<OwnerConfig> LoadConfig(const std::string& path);

}  // namespace ominspect::owner
