// Kinds of problems are words of this project's own; "about:blank" would say less than the status.
#include "http/message.h"

#include <charconv>

#include "common/json.h"

namespace ominspect::gateway {
namespace {

const char* TitleOf(int status) {
    switch (status) {
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 409:
            return "Conflict";
        case 413:
            return "Content Too Large";
        case 415:
            return "Unsupported Media Type";
        case 421:
            return "Misdirected Request";
        case 429:
            return "Too Many Requests";
        case 503:
            return "Service Unavailable";
        default:
            return "Internal Server Error";
    }
}

}  // namespace

const char* WordOf(Role role) {
    switch (role) {
        case Role::kAct:
            return "act";
        case Role::kLook:
            return "look";
        case Role::kNone:
            break;
    }
    return "none";
}

Response TextResponse(int status, std::string contentType, std::string body) {
    Response response;
    response.status = status;
    response.contentType = std::move(contentType);
    response.body = std::make_shared<const std::string>(std::move(body));
    return response;
}

Response Problem(int status, const std::string& kind, const std::string& detail) {
    auto document = json::Value::Object();
    document.Text("type", "urn:ominspect:problem:" + kind).Text("title", TitleOf(status));
    document.Number("status", static_cast<std::uint64_t>(status)).Text("detail", detail);
    return TextResponse(status, "application/problem+json", document.Print());
}

std::optional<std::string> Decoded(std::string_view text) {
    std::string out;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            out += text[at];
            continue;
        }
        unsigned byte = 0;
        const std::string_view digits = text.substr(at + 1, 2);
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (error != std::errc() || end != digits.data() + 2 || byte == 0) {
            return std::nullopt;
        }
        out += static_cast<char>(byte);
        at += 2;
    }
    return out;
}

std::optional<std::vector<std::string>> PartsOf(std::string_view path) {
    std::vector<std::string> parts;
    while (!path.empty()) {
        path.remove_prefix(1);  // the slash
        const std::size_t end = path.find('/');
        auto part = Decoded(path.substr(0, end));
        if (!part) {
            return std::nullopt;
        }
        parts.push_back(std::move(*part));
        path.remove_prefix(std::min(end, path.size()));
    }
    return parts;
}

std::string CookieOf(std::string_view header, std::string_view name) {
    while (!header.empty()) {
        const std::size_t end = std::min(header.find(';'), header.size());
        std::string_view one = header.substr(0, end);
        header.remove_prefix(std::min(end + 1, header.size()));
        one.remove_prefix(std::min(one.find_first_not_of(' '), one.size()));
        if (one.size() > name.size() && one.starts_with(name) && one[name.size()] == '=') {
            return std::string(one.substr(name.size() + 1));
        }
    }
    return {};
}

}  // namespace ominspect::gateway
