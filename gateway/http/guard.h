// Whether a request may be handled. Browsers let pages from elsewhere send requests: such pages can neither read nor
// act.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "http/message.h"

namespace ominspect::gateway {

// `hosts` are the names by which this machine is called, without ports. Nothing: it may. At the Unix socket, which no
// browser reaches, any Host will do.
std::optional<Response> Refusal(const Request& request, const std::vector<std::string>& hosts);

// The host of a Host header or of an origin, without its port and brackets, in small letters.
std::string HostOf(std::string_view authority);

}  // namespace ominspect::gateway
