#include "mqtt/documents.h"

namespace ominspect::gateway::mqtt {
namespace {

json::Value Status(const char* state, const std::string& terminal, TimePoint since) {
    auto json = json::Value::Object();
    json.Text("state", state).Text("terminal", terminal).Text("since", UtcTime(since));
    return json;
}

}  // namespace

std::string StatusDocument(const char* state, const std::string& terminal, TimePoint since) {
    return Status(state, terminal, since).Print();
}

std::string OnlineDocument(const std::string& terminal, TimePoint since, const ServerView& server) {
    auto json = Status("online", terminal, since);
    auto known = json::Value::Object();
    known.Flag("isUp", server.isUp).Number("restarts", server.restarts);
    if (server.since != TimePoint()) {
        known.Text("since", UtcTime(server.since));
    }
    json.Text("version", OMINSPECT_VERSION).Put("server", std::move(known));
    return json.Print();
}

std::string ItemDocument(const ItemView& item) {
    auto json = json::Value::Object();
    json.Text("item", item.name).Flag("isConfigured", item.configuration.has_value());
    if (item.configuration) {
        json.Text("level", item.configuration->level).Text("mode", item.configuration->isSync ? "sync" : "async");
    }
    json.Flag("hasOwner", !item.owners.empty());
    if (item.last) {
        history::Row row;
        row.seq = item.last->seq;
        row.time = item.last->time;
        row.item = item.name;
        row.status = item.last->status;
        row.text = item.last->text;
        row.begin = item.last->begin;
        row.duration = item.last->duration;
        row.cause = item.last->cause;
        json.Put("lastResult", history::JsonOf(row));
    }
    return json.Print();
}

std::string EventDocument(const history::Row& row) {
    return history::JsonOf(row).Print();
}

std::string MissingDocument(std::uint64_t first, std::uint64_t last, TimePoint time) {
    history::Row gap;
    gap.kind = history::Kind::kGap;
    gap.time = time;
    gap.text = "not in the history, or not any more";
    auto missing = json::Value::Object();
    missing.Number("first", first).Number("last", last);
    return std::move(history::JsonOf(gap).Put("missing", std::move(missing))).Print();
}

}  // namespace ominspect::gateway::mqtt
