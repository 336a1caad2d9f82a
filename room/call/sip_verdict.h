// What the status of an answer to OPTIONS says of a server. Pure.
#pragma once

#include <string>

#include "finding.h"

namespace room {

// `server` begins the text; `hasUser` says whether the request was for the room's own address.
Finding JudgeSipStatus(int status, const std::string& reason, const std::string& server, bool hasUser);

}  // namespace room
