// Each row of the table describes one route: method, path and required role.
#include "http/api.h"

#include <algorithm>
#include <array>

#include "http/arguments.h"
#include "http/builtin.h"
#include "http/document.h"
#include "http/guard.h"

namespace ominspect::gateway {
namespace {

constexpr std::size_t kPictureRows = 50;

using Headers = std::vector<std::pair<std::string, std::string>>;

// Nothing but what this origin serves, and nothing that is written into the page itself.
const Headers& CommonHeaders() {
    static const Headers kHeaders{
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src data:; connect-src 'self'; "
         "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
        {"X-Content-Type-Options", "nosniff"},
        {"Referrer-Policy", "no-referrer"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
        {"Cache-Control", "no-store"},
    };
    return kHeaders;
}

Response JsonResponse(int status, const json::Value& document) {
    return TextResponse(status, "application/json", document.Print());
}

// Whether a path is that of a route, in which "{}" stands for any one part.
bool Matches(const std::vector<std::string>& road, const std::vector<std::string>& parts) {
    return std::equal(road.begin(), road.end(), parts.begin(), parts.end(),
                      [](const std::string& one, const std::string& other) { return one == "{}" || one == other; });
}

Response Wrong(const Error& error) {
    return Problem(400, "request", error.text);
}

Response SlowDown(std::chrono::seconds retryAfter) {
    Response response = Problem(429, "slow-down", "too many wrong tokens came from this address");
    response.headers.emplace_back("Retry-After", std::to_string(retryAfter.count()));
    return response;
}

Response FindRows(const std::string& path, const history::Filter& filter) {
    auto reader = history::Reader::Open(path);
    const auto rows = reader ? (*reader)->Find(filter) : reader.Failure();
    if (!rows) {
        return Problem(503, "history", "the history cannot be read: " + rows.Failure().text);
    }
    auto events = json::Value::Array();
    for (const history::Row& row : *rows) {
        events.Add(history::JsonOf(row));
    }
    auto document = json::Value::Object();
    document.Put("events", std::move(events));
    if (rows->size() == filter.limit) {
        document.Number(filter.isOldestFirst ? "nextAfter" : "nextBefore", rows->back().seq);
    }
    return JsonResponse(200, document);
}

Response CookieResponse(const Request& request, const std::string& session, int seconds, const json::Value& document) {
    Response response = JsonResponse(200, document);
    response.headers.emplace_back("Set-Cookie", "ominspect=" + session +
                                                    "; Path=/; HttpOnly; SameSite=Strict; Max-Age=" +
                                                    std::to_string(seconds) + (request.isTls ? "; Secure" : ""));
    return response;
}

}  // namespace

struct Api::Road {
    const char* method;
    std::vector<std::string> parts;
    Role role;
    Answer (Api::*handle)(const Request& request, const std::vector<std::string>& parts);
};

const std::vector<Api::Road>& Api::Roads() {
    static const std::vector<Road> kRoads{
        {"GET", {"healthz"}, Role::kNone, &Api::Healthz},
        {"GET", {"metrics"}, Role::kLook, &Api::Metrics},
        {"GET", {"api", "v1", "openapi.json"}, Role::kNone, &Api::Document},
        {"POST", {"api", "v1", "login"}, Role::kNone, &Api::LogIn},
        {"POST", {"api", "v1", "logout"}, Role::kLook, &Api::LogOut},
        {"GET", {"api", "v1", "session"}, Role::kLook, &Api::Session},
        {"GET", {"api", "v1", "health"}, Role::kLook, &Api::Health},
        {"GET", {"api", "v1", "picture"}, Role::kLook, &Api::WholePicture},
        {"GET", {"api", "v1", "items"}, Role::kLook, &Api::Items},
        {"GET", {"api", "v1", "items", "{}"}, Role::kLook, &Api::Item},
        {"POST", {"api", "v1", "items", "{}", "run"}, Role::kAct, &Api::ItemAction},
        {"POST", {"api", "v1", "items", "{}", "stop"}, Role::kAct, &Api::ItemAction},
        {"POST", {"api", "v1", "items", "{}", "reset"}, Role::kAct, &Api::ItemAction},
        {"POST", {"api", "v1", "groups"}, Role::kAct, &Api::Group},
        {"GET", {"api", "v1", "operations"}, Role::kLook, &Api::AllOperations},
        {"GET", {"api", "v1", "operations", "{}"}, Role::kLook, &Api::OneOperation},
        {"POST", {"api", "v1", "operations", "{}", "stop"}, Role::kAct, &Api::StopOperation},
        {"GET", {"api", "v1", "history"}, Role::kLook, &Api::History},
        {"GET", {"api", "v1", "events"}, Role::kLook, &Api::Events},
        {"GET", {"api", "v1", "collection"}, Role::kLook, &Api::CollectionState},
        {"POST", {"api", "v1", "collection"}, Role::kAct, &Api::BeginCollection},
        {"DELETE", {"api", "v1", "collection"}, Role::kAct, &Api::DeleteCollection},
        {"GET", {"api", "v1", "collection", "package"}, Role::kAct, &Api::Package},
    };
    return kRoads;
}

Answer Api::Handle(Request& request) {
    Answer answer = Find(request);
    if (auto* response = std::get_if<Response>(&answer)) {
        response->headers.insert(response->headers.end(), CommonHeaders().begin(), CommonHeaders().end());
    } else if (auto* later = std::get_if<Later>(&answer)) {
        later->work = [work = std::move(later->work)] {
            Response done = work();
            done.headers.insert(done.headers.end(), CommonHeaders().begin(), CommonHeaders().end());
            return done;
        };
    }
    return answer;
}

Answer Api::Find(Request& request) {
    const auto parts = PartsOf(request.path);
    if (!parts) {
        return Problem(400, "request", "the path is not well-formed");
    }
    if (const auto error = DecodeQuery(request)) {
        return Wrong(*error);
    }
    if (auto refused = Identify(request)) {
        return *refused;
    }
    if (auto refused = Refusal(request, context_.hosts)) {
        return *refused;
    }
    if (request.method == "GET") {
        if (auto page = BuiltinFile(request.path)) {
            return *page;
        }
    }
    std::string allowed;
    for (const Road& road : Roads()) {
        if (!Matches(road.parts, *parts)) {
            continue;
        }
        if (request.method == road.method) {
            return Take(request, road, *parts);
        }
        allowed += (allowed.empty() ? "" : ", ") + std::string(road.method);
    }
    if (!allowed.empty()) {
        Response response = Problem(405, "method", "there is no " + request.method + " of this");
        response.headers.emplace_back("Allow", allowed);
        return response;
    }
    return Problem(404, "absent", "there is nothing of this name");
}

// Fills in who asks. Only a source that has tried too many wrong tokens is refused here; without a valid token a
// request has no role.
std::optional<Response> Api::Identify(Request& request) {
    if (request.IsUnix()) {
        // The socket's mode admits only those who may ask on the bus as well.
        request.role = Role::kAct;
        request.who = "local";
        return std::nullopt;
    }
    const std::string authorization = request.Header("authorization");
    const std::string cookie = CookieOf(request.Header("cookie"), "ominspect");
    if (authorization.empty() && cookie.empty()) {
        return std::nullopt;
    }
    const auto grant = access_.Check(authorization, cookie, request.source, gateway::Access::Clock::now());
    if (grant.retryAfter.count() > 0) {
        return SlowDown(grant.retryAfter);
    }
    request.role = grant.role;
    request.who = grant.who;
    request.session = grant.session;
    return std::nullopt;
}

Answer Api::Take(Request& request, const Road& road, const std::vector<std::string>& parts) {
    if (request.role < road.role) {
        if (request.role != Role::kNone) {
            return Problem(403, "role", std::string("this takes the role \"") + WordOf(road.role) + "\"");
        }
        Response response = Problem(401, "token", "this takes a token");
        response.headers.emplace_back("WWW-Authenticate", "Bearer");
        return response;
    }
    return (this->*road.handle)(request, parts);
}

// The table holds all handlers, so that they have one type, whatever each of them needs.
// NOLINTBEGIN(readability-make-member-function-const, readability-convert-member-functions-to-static)

Answer Api::Healthz(const Request& /*request*/, const std::vector<std::string>& /*parts*/) {
    auto states = json::Value::Object();
    for (const auto& [name, part] : context_.parts.All()) {
        states.Text(name.c_str(), gateway::WordOf(part.state));
    }
    const bool isWell = context_.parts.AreWell();
    auto document = json::Value::Object();
    document.Text("status", isWell ? "ok" : "failed").Put("parts", std::move(states));
    return JsonResponse(isWell ? 200 : 503, document);
}

Answer Api::Metrics(const Request& /*request*/, const std::vector<std::string>& /*parts*/) {
    if (context_.metrics == nullptr) {
        return Problem(503, "metrics", "the metrics are switched off");
    }
    Response response;
    response.contentType = "text/plain; version=0.0.4; charset=utf-8";
    response.body = context_.metrics->Document(gateway::Metrics::Clock::now());
    return response;
}

Answer Api::Document(const Request& /*request*/, const std::vector<std::string>& /*parts*/) {
    return OpenApiDocument();
}

Answer Api::LogIn(const Request& request, const std::vector<std::string>& /*parts*/) {
    const auto content = ContentOf(request);
    const auto secret = content ? content->Read()["token"].Text() : std::nullopt;
    if (!secret) {
        return Problem(400, "request", R"(a login is {"token": "..."})");
    }
    const auto grant = access_.LogIn(*secret, request.source, gateway::Access::Clock::now());
    if (grant.retryAfter.count() > 0) {
        return SlowDown(grant.retryAfter);
    }
    if (grant.role == Role::kNone) {
        return Problem(401, "token", "there is no such token");
    }
    constexpr int kSeconds = 12 * 3600;
    auto document = json::Value::Object();
    return CookieResponse(request, grant.session, kSeconds,
                          document.Text("role", WordOf(grant.role)).Text("who", grant.who));
}

Answer Api::LogOut(const Request& request, const std::vector<std::string>& /*parts*/) {
    access_.LogOut(request.session);
    return CookieResponse(request, "", 0, json::Value::Object());
}

Answer Api::Session(const Request& request, const std::vector<std::string>& /*parts*/) {
    auto document = json::Value::Object();
    return JsonResponse(200, document.Text("role", WordOf(request.role)).Text("who", request.who));
}

Answer Api::Health(const Request& /*request*/, const std::vector<std::string>& /*parts*/) {
    return JsonResponse(200, HealthDocument());
}

json::Value Api::HealthDocument() const {
    auto document = json::Value::Object();
    document.Text("status", context_.parts.AreWell() ? "ok" : "failed");
    document.Put("parts", PartsJson(context_.parts.All())).Put("gateway", context_.figures());
    return document;
}

// All that a page begins with, in one request.
Answer Api::WholePicture(const Request& request, const std::vector<std::string>& /*parts*/) {
    auto session = json::Value::Object();
    session.Text("role", WordOf(request.role)).Text("who", request.who);
    return Later{[this, session = session.Print()] {
        std::string text = "{\"session\":" + session + ",\"state\":" + *StateText();
        text += ",\"operations\":" + context_.operations.All().Print() + ",\"health\":" + HealthDocument().Print();
        if (context_.collection != nullptr) {
            text += ",\"collection\":" + context_.collection->Document().Print();
        }
        history::Filter filter;
        filter.limit = kPictureRows;
        const Response rows =
            context_.historyPath.empty() ? Response{503, {}, {}, {}, {}} : FindRows(context_.historyPath, filter);
        text += rows.status == 200 ? ",\"history\":" + *rows.body + "}" : "}";
        return TextResponse(200, "application/json", std::move(text));
    }};
}

Answer Api::Items(const Request& /*request*/, const std::vector<std::string>& /*parts*/) {
    Response response;
    response.body = StateText();
    return response;
}

// Made anew when something has changed, and each second, as ages grow.
std::shared_ptr<const std::string> Api::StateText() {
    const auto now = std::chrono::time_point_cast<std::chrono::seconds>(std::chrono::system_clock::now());
    const std::lock_guard lock(mutex_);
    const std::uint64_t version = context_.picture.Version();
    if (!state_ || version != stateVersion_ || now != stateTime_) {
        context_.picture.Read(
            [&](const State& state) { state_ = std::make_shared<const std::string>(StateJson(state, now).Print()); });
        stateVersion_ = version;
        stateTime_ = now;
    }
    return state_;
}

Answer Api::Item(const Request& /*request*/, const std::vector<std::string>& parts) {
    std::optional<json::Value> document;
    context_.picture.Read([&](const State& state) {
        const auto found = state.items.find(parts[3]);
        if (found != state.items.end()) {
            document = ItemJson(found->second, std::chrono::system_clock::now());
        }
    });
    return document ? JsonResponse(200, *document) : Problem(404, "item", "no item of this name is known");
}

Answer Api::BeginOrder(Order order) {
    const auto number = context_.operations.Begin(std::move(order));
    if (!number) {
        const bool isBusy = number.Failure().code == ErrorCode::kRefused;
        return isBusy ? Problem(503, "busy", number.Failure().text) : Wrong(number.Failure());
    }
    const std::string place = "/api/v1/operations/" + std::to_string(*number);
    auto document = json::Value::Object();
    document.Number("id", *number).Text("operation", place).Text("events", "/api/v1/events");
    Response response = JsonResponse(202, document);
    response.headers.emplace_back("Location", place);
    return response;
}

Answer Api::ItemAction(const Request& request, const std::vector<std::string>& parts) {
    Order order{OperationKind::kRun, {parts[3]}, "", std::chrono::seconds(310), request.who};
    if (parts[4] != "run") {
        order.kind = parts[4] == "stop" ? OperationKind::kStop : OperationKind::kReset;
        return BeginOrder(std::move(order));
    }
    const auto content = ContentOf(request);
    const auto error = content ? ReadRun(content->Read(), order) : std::optional(content.Failure());
    return error ? Wrong(*error) : BeginOrder(std::move(order));
}

Answer Api::Group(const Request& request, const std::vector<std::string>& /*parts*/) {
    Order order{OperationKind::kGroup, {}, "", std::chrono::seconds(310), request.who};
    const auto content = ContentOf(request);
    if (!content) {
        return Wrong(content.Failure());
    }
    constexpr std::size_t kMostItems = 256;
    for (const auto& [name, item] : content->Read()["items"].Members()) {
        const auto text = item.Text();
        if (!text || order.items.size() >= kMostItems) {
            return Problem(400, "request", "items must be a list of at most 256 names");
        }
        order.items.push_back(*text);
    }
    if (order.items.empty()) {
        return Problem(400, "request", "items must name at least one item");
    }
    const auto error = ReadRun(content->Read(), order);
    return error ? Wrong(*error) : BeginOrder(std::move(order));
}

Answer Api::AllOperations(const Request& /*request*/, const std::vector<std::string>& /*parts*/) {
    return JsonResponse(200, context_.operations.All());
}

Answer Api::OneOperation(const Request& /*request*/, const std::vector<std::string>& parts) {
    const auto number = NumberOf(parts[3]);
    const auto document = number ? context_.operations.Find(*number) : std::nullopt;
    return document ? JsonResponse(200, *document) : Problem(404, "operation", "no such operation is known");
}

Answer Api::StopOperation(const Request& /*request*/, const std::vector<std::string>& parts) {
    const auto number = NumberOf(parts[3]);
    const auto document = number ? context_.operations.Find(*number) : std::nullopt;
    if (!document) {
        return Problem(404, "operation", "no such operation is known");
    }
    if (!context_.operations.Stop(*number)) {
        return Problem(409, "ended", "the operation has ended");
    }
    return JsonResponse(202, *document);
}

Answer Api::History(const Request& request, const std::vector<std::string>& /*parts*/) {
    if (context_.historyPath.empty()) {
        return Problem(503, "history", "the history is switched off");
    }
    const auto filter = FilterOf(request);
    if (!filter) {
        return Wrong(filter.Failure());
    }
    return Later{[path = context_.historyPath, filter = *filter] { return FindRows(path, filter); }};
}

Answer Api::Events(const Request& request, const std::vector<std::string>& /*parts*/) {
    const std::string header = request.Header("last-event-id");
    const std::string text = header.empty() ? request.Query("after").value_or("") : header;
    const auto after = NumberOf(text);
    if (!text.empty() && !after) {
        return Problem(400, "request", "Last-Event-ID must be the number of an event");
    }
    return Listen{after};
}

Answer Api::CollectionState(const Request& /*request*/, const std::vector<std::string>& /*parts*/) {
    if (context_.collection == nullptr) {
        return Problem(503, "collection", "collections are switched off");
    }
    return JsonResponse(200, context_.collection->Document());
}

Answer Api::BeginCollection(const Request& request, const std::vector<std::string>& parts) {
    if (context_.collection != nullptr) {
        if (const auto error = context_.collection->Begin(request.who)) {
            const bool goesOn = error->code == ErrorCode::kRefused;
            return goesOn ? Problem(409, "collection", error->text) : Problem(503, "busy", error->text);
        }
    }
    Answer answer = CollectionState(request, parts);
    auto& response = std::get<Response>(answer);
    if (response.status == 200) {
        response.status = 202;
        response.headers.emplace_back("Location", "/api/v1/collection");
    }
    return answer;
}

Answer Api::DeleteCollection(const Request& request, const std::vector<std::string>& parts) {
    if (context_.collection != nullptr) {
        context_.collection->Delete();
    }
    return CollectionState(request, parts);
}

Answer Api::Package(const Request& /*request*/, const std::vector<std::string>& /*parts*/) {
    const std::string file = context_.collection == nullptr ? "" : context_.collection->Package();
    if (file.empty()) {
        return Problem(404, "collection", "there is no package");
    }
    Response response;
    response.contentType = "application/zstd";
    response.file = file;
    response.headers.emplace_back("Content-Disposition", "attachment; filename=\"ominspect-logs.tar.zst\"");
    return response;
}

// NOLINTEND(readability-make-member-function-const, readability-convert-member-functions-to-static)

}  // namespace ominspect::gateway
