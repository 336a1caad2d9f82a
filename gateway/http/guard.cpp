// The name in Host must be one of ours: a name that somebody else's DNS leads here is not. An Origin must be the page's
// own; where a browser sends none, it says by Sec-Fetch-Site where a request comes from.
#include "http/guard.h"

#include <algorithm>
#include <cctype>

namespace ominspect::gateway {
namespace {

constexpr std::size_t kMostBody = 64UL * 1024UL;

}  // namespace

std::string HostOf(std::string_view authority) {
    if (authority.starts_with('[')) {
        authority = authority.substr(1, authority.find(']') - 1);
    } else {
        authority = authority.substr(0, authority.find(':'));
    }
    std::string host(authority);
    std::transform(host.begin(), host.end(), host.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return host;
}

std::optional<Response> Refusal(const Request& request, const std::vector<std::string>& hosts) {
    const std::string host = request.Header("host");
    if (!request.IsUnix() && std::find(hosts.begin(), hosts.end(), HostOf(host)) == hosts.end()) {
        return Problem(421, "host", "this machine is not called so; its names stand in the gateway's configuration");
    }
    const std::string origin = request.Header("origin");
    const std::string own = (request.isTls ? "https://" : "http://") + host;
    if (!origin.empty() && origin != own) {
        return Problem(403, "origin", "a page from elsewhere may not ask");
    }
    const std::string site = request.Header("sec-fetch-site");
    const bool isNavigation = request.Header("sec-fetch-mode") == "navigate" && request.method == "GET";
    if (!site.empty() && site != "same-origin" && site != "none" && !isNavigation) {
        return Problem(403, "origin", "a page from elsewhere may not ask");
    }
    const bool isChange = request.method != "GET" && request.method != "HEAD";
    if (isChange && !request.session.empty() && origin.empty() && site != "same-origin") {
        return Problem(403, "origin", "a change with a session's cookie needs the page's Origin");
    }
    if (request.body.size() > kMostBody) {
        return Problem(413, "size", "a request has at most 64 KiB");
    }
    if (!request.body.empty() && !request.Header("content-type").starts_with("application/json")) {
        return Problem(415, "content-type", "a request's content must be application/json");
    }
    return std::nullopt;
}

}  // namespace ominspect::gateway
