// Requests and responses of HTTP, as the gateway's handlers see them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace ominspect::gateway {

// What somebody may do. Each role may do what those before it may.
enum class Role { kNone, kLook, kAct };
const char* WordOf(Role role);  // "none", "look", "act"

struct Request {
    std::string method;
    std::string path;                            // not decoded
    std::map<std::string, std::string> query;    // decoded by the time that a handler sees it
    std::map<std::string, std::string> headers;  // names in small letters
    std::string body;
    std::string source;  // who connects: "unix", or the peer's address
    bool isTls = false;

    // ---- filled in by those who check ----
    Role role = Role::kNone;
    std::string who;      // the token's name; of a peer at the Unix socket its user
    std::string session;  // the cookie's value, if it is a session's

    bool IsUnix() const { return source == "unix"; }
    std::string Header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? "" : found->second;
    }
    std::optional<std::string> Query(const std::string& name) const {
        const auto found = query.find(name);
        return found == query.end() ? std::nullopt : std::optional(found->second);
    }
};

struct Response {
    int status = 200;
    std::string contentType = "application/json";
    std::shared_ptr<const std::string> body;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string file;  // instead of the body: a file that is sent
};

// A response that takes a while: `work` is called on a thread where it may wait.
struct Later {
    std::function<Response()> work;
};

// The connection becomes a listener to the events after `after`; without it to those that come.
struct Listen {
    std::optional<std::uint64_t> after;
};

using Answer = std::variant<Response, Later, Listen>;

Response TextResponse(int status, std::string contentType, std::string body);

// The problem document of RFC 9457. `kind` is its stable word.
Response Problem(int status, const std::string& kind, const std::string& detail);

// Percent-decoded; nothing for what is not well-formed, or holds a NUL.
std::optional<std::string> Decoded(std::string_view text);

// The parts of a path between its slashes, decoded; nothing when one cannot be.
std::optional<std::vector<std::string>> PartsOf(std::string_view path);

// A cookie's value; empty when it is not there.
std::string CookieOf(std::string_view header, std::string_view name);

}  // namespace ominspect::gateway
