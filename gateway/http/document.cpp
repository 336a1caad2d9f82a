// Members that are not known are left out.
#include "http/document.h"

#include <algorithm>

#include "common/client_answers.h"

namespace ominspect::gateway {
namespace {

std::uint64_t SecondsBetween(TimePoint from, TimePoint to) {
    return static_cast<std::uint64_t>(
        std::max<std::int64_t>(0, std::chrono::duration_cast<std::chrono::seconds>(to - from).count()));
}

json::Value LastJson(const LastResult& last, TimePoint now) {
    auto json = json::Value::Object();
    json.Text("status", last.status).Text("text", last.text).Text("time", UtcTime(last.time));
    json.Number("ageSeconds", SecondsBetween(last.time, now)).Number("seq", last.seq);
    if (last.begin) {
        json.Text("begin", UtcTime(*last.begin));
    }
    if (last.duration) {
        json.Number("durationMs", static_cast<std::uint64_t>(std::max<std::int64_t>(0, last.duration->count())));
    }
    if (!last.cause.empty()) {
        json.Text("cause", last.cause);
    }
    return json;
}

json::Value ServerJson(const ServerView& server) {
    auto json = json::Value::Object();
    json.Flag("isUp", server.isUp);
    if (server.isBusy) {
        json.Flag("isBusy", *server.isBusy);
    }
    json.Number("restarts", server.restarts);
    if (server.since != TimePoint()) {
        json.Text("since", UtcTime(server.since));
    }
    return json;
}

}  // namespace

json::Value ItemJson(const ItemView& item, TimePoint now) {
    auto json = json::Value::Object();
    json.Text("item", item.name).Flag("isConfigured", item.configuration.has_value());
    if (item.configuration) {
        json.Text("level", item.configuration->level).Text("mode", item.configuration->isSync ? "sync" : "async");
    }
    json.Flag("hasOwner", !item.owners.empty()).Put("owners", OwnersJson(item.owners));
    json.Text("state", WordOf(item.state));
    if (item.runningSince) {
        json.Text("runningSince", UtcTime(*item.runningSince));
    }
    if (item.last) {
        json.Put("lastResult", LastJson(*item.last, now));
    }
    return json;
}

json::Value StateJson(const State& state, TimePoint now) {
    auto items = json::Value::Array();
    for (const std::string& name : state.order) {
        items.Add(ItemJson(state.items.at(name), now));
    }
    auto silent = json::Value::Array();
    for (const std::string& process : state.silent) {
        silent.AddText(process);
    }
    auto json = json::Value::Object();
    json.Text("time", UtcTime(now)).Put("server", ServerJson(state.server)).Put("items", std::move(items));
    json.Number("configured", state.configured).Put("silentProcesses", std::move(silent));
    return json;
}

json::Value PartsJson(const std::map<std::string, Part>& parts) {
    auto all = json::Value::Object();
    for (const auto& [name, part] : parts) {
        auto json = json::Value::Object();
        json.Text("state", WordOf(part.state)).Text("since", UtcTime(part.since));
        if (!part.text.empty()) {
            json.Text("text", part.text);
        }
        all.Put(name.c_str(), std::move(json));
    }
    return all;
}

std::string EventJson(const Event& event) {
    if (!event.document.empty()) {
        return event.document;
    }
    history::Row row;
    row.seq = event.seq;
    row.time = event.time;
    row.kind = StoredKind(event.kind).value_or(history::Kind::kServer);
    row.item = event.item;
    row.status = event.status;
    row.text = event.text;
    row.begin = event.begin;
    row.duration = event.duration;
    row.cause = event.cause;
    return history::JsonOf(row, WordOf(event.kind)).Print();
}

}  // namespace ominspect::gateway
