// The places that HTTP is listened to: the configured ones, or those that the service manager has opened.
#pragma once

#include <vector>

#include "http/access.h"
#include "http/server.h"
#include "settings.h"

namespace ominspect::gateway {

// Opens them. The error names a place that cannot be opened, or that must not be served as it is configured: an address
// that others can reach takes a certificate and at least one token.
Result<std::vector<HttpServer::Place>> OpenPlaces(const HttpSettings& settings, bool hasTokens);

// The names by which requests may call this machine.
std::vector<std::string> HostsOf(const HttpSettings& settings, const std::vector<HttpServer::Place>& places);

// Where a socket listens, for people: a path, or ADDRESS:PORT.
std::string PlaceName(const HttpServer::Place& place);

}  // namespace ominspect::gateway
