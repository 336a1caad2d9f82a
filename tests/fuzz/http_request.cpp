// A request to the gateway, as its HTTP library hands it on: METHOD PATH, headers, an empty line and the body. Whoever
// has no token gets nothing but what is open to all.
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include <unistd.h>

#include "common/json.h"
#include "history/store.h"
#include "http/api.h"
#include "input.h"

using namespace ominspect;
using namespace ominspect::gateway;

namespace {

constexpr const char* kSecret = "0123456789abcdefghij";

// Where the history and the package of a collection are.
struct Folder {
    std::string path = "/dev/shm/ominspect-fuzz-http-" + std::to_string(getpid());
    std::string history = path + "/history.db";

    Folder() {
        std::filesystem::create_directories(path);
        bool setAside = false;
        auto store = Store::Open(history, "bus", setAside);
        fuzz::Check(static_cast<bool>(store));
        std::vector<Event> events;
        for (const char* item : {"disk", "clock", "\xff", "disk"}) {
            Event& event = events.emplace_back(EventNow(EventKind::kResult, "success"));
            event.item = item;
            event.text = "87 %\n\"";
            event.seq = events.size();
        }
        events.push_back(EventNow(EventKind::kGap));
        events.back().seq = events.size();
        fuzz::Check(!(*store)->Write(events, std::chrono::system_clock::now()));
    }
};

const Folder& TheFolder() {
    static const Folder folder;
    return folder;
}

// All that a request can reach, without a bus: whatever is ordered fails. The parts that may be switched off are there,
// or are not.
struct World {
    explicit World(bool areOff)
        : api({picture,
               parts,
               hub,
               operations,
               areOff ? nullptr : &collection,
               areOff ? nullptr : &metrics,
               areOff ? "" : TheFolder().history,
               {"room12"},
               [] { return json::Value::Object(); }},
              {{Role::kAct, "desk", kSecret}, {Role::kLook, "page", "abcdefghij0123456789"}}) {
        client::Inventory inventory;
        inventory.items = {{"disk", client::ConfiguredItem{"disk", "warn", true}, {}}, {"\xff", {}, {}}};
        inventory.configured = 1;
        (void)picture.SetInventory(inventory);
    }

    Feed feed{nullptr, 1};
    Runs runs;
    Link link;
    Picture picture;
    Parts parts{[](const std::string&, const Part&) {}};
    Hub hub{5, [](std::uint64_t after, std::size_t limit) -> std::optional<std::vector<history::Row>> {
                history::Filter filter;
                filter.after = after;
                filter.limit = limit;
                filter.isOldestFirst = true;
                auto reader = history::Reader::Open(TheFolder().history);
                auto rows = reader ? (*reader)->Find(filter) : reader.Failure();
                return rows ? std::optional(std::move(*rows)) : std::nullopt;
            }};
    Operations operations{link, runs, picture, feed};
    Collection collection{"/nowhere/collector", WithPackage(), "", feed};
    Metrics metrics{{picture, parts, "1", [] { return GatewayFigures{}; }}};
    Api api;

private:
    static std::string WithPackage() {
        std::filesystem::create_directories(TheFolder().path + "/collection");
        std::ofstream(TheFolder().path + "/collection/logs.tar.zst") << "package";
        return TheFolder().path + "/collection";
    }
};

// A listener gets frames that end, and no more than it takes.
void CheckListener(Hub& hub, const Listen& listen) {
    const auto listener = hub.Add(listen.after, [] {});
    fuzz::Check(listener != nullptr);
    hub.Tell(EventNow(EventKind::kBusy, "busy"));
    std::string heard;
    for (;;) {
        char bytes[100];
        std::size_t count = 0;
        if (listener->Take(bytes, sizeof bytes, count) != Listener::Taken::kSome) {
            break;
        }
        fuzz::Check(count > 0 && count <= sizeof bytes);
        heard.append(bytes, count);
    }
    fuzz::Check(heard.ends_with("\n\n"));
    hub.Remove(listener);
}

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
    fuzz::Input input(data, size);
    const std::uint32_t flags = input.Number(1);
    World world((flags & 8U) != 0);
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
    } else if (const auto* listen = std::get_if<Listen>(&answer)) {
        CheckListener(world.hub, *listen);
    }
    return 0;
}
