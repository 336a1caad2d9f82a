// A request to the gateway, as its HTTP library hands it on: METHOD PATH, headers, an empty line and the body. Whoever
// has no token gets nothing but what is open to all.
#include <map>
#include <string>

#include "common/json.h"
#include "http/api.h"
#include "input.h"

using namespace ominspect;
using namespace ominspect::gateway;

namespace {

constexpr const char* kSecret = "0123456789abcdefghij";

// All that a request can reach, without a bus: whatever is ordered fails.
struct World {
    Feed feed{nullptr, 1};
    Runs runs;
    Link link;
    Picture picture;
    Parts parts{[](const std::string&, const Part&) {}};
    Hub hub{0, [](std::uint64_t, std::size_t) { return std::optional<std::vector<history::Row>>(); }};
    Operations operations{link, runs, picture, feed};
    Metrics metrics{{picture, parts, "1", [] { return GatewayFigures{}; }}};
    Api api{{picture, parts, hub, operations, nullptr, &metrics, "", {"room12"}, [] { return json::Value::Object(); }},
            {{Role::kAct, "desk", kSecret}, {Role::kLook, "page", "abcdefghij0123456789"}}};
};

std::string_view Line(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

// As the HTTP library does it, the path begins with a slash.
Request Parsed(std::string_view text) {
    Request request;
    std::string_view head = Line(text);
    const std::size_t blank = std::min(head.find(' '), head.size());
    request.method = head.substr(0, blank);
    std::string_view target = head.substr(std::min(blank + 1, head.size()));
    const std::size_t question = std::min(target.find('?'), target.size());
    request.path = "/" + std::string(target.substr(0, question));
    target.remove_prefix(question);
    while (!target.empty()) {
        target.remove_prefix(1);
        const std::size_t end = std::min(target.find('&'), target.size());
        const std::string_view one = target.substr(0, end);
        const std::size_t equals = std::min(one.find('='), one.size());
        request.query[std::string(one.substr(0, equals))] = one.substr(std::min(equals + 1, one.size()));
        target.remove_prefix(end);
    }
    for (std::string_view line = Line(text); !line.empty(); line = Line(text)) {
        const std::size_t colon = std::min(line.find(':'), line.size());
        request.headers[std::string(line.substr(0, colon))] = line.substr(std::min(colon + 1, line.size()));
    }
    request.body = text;
    return request;
}

void CheckResponse(const Response& response) {
    fuzz::Check(response.status >= 200 && response.status <= 599);
    if (response.contentType.find("json") != std::string::npos && response.body) {
        fuzz::Check(static_cast<bool>(json::Value::Parse(*response.body)));
    }
    for (const auto& [name, value] : response.headers) {
        fuzz::Check(value.find_first_of("\r\n") == std::string::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    World world;
    fuzz::Input input(data, size);
    const std::uint32_t flags = input.Number(1);
    Request request = Parsed(input.Rest());
    request.source = (flags & 1U) != 0 ? "unix" : "192.0.2." + std::to_string(flags);
    request.isTls = (flags & 2U) != 0;
    if ((flags & 4U) != 0) {
        request.headers["authorization"] = std::string("Bearer ") + kSecret;
        request.headers["host"] = "room12";
    }
    const Answer answer = world.api.Handle(request);
    if (const auto* response = std::get_if<Response>(&answer)) {
        CheckResponse(*response);
    } else if (const auto* later = std::get_if<Later>(&answer)) {
        CheckResponse(later->work());
    }
    return 0;
}
