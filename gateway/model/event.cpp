// The words are part of the interface of HTTP.
#include "model/event.h"

namespace ominspect::gateway {

const char* WordOf(EventKind kind) {
    switch (kind) {
        case EventKind::kResult:
            return "result";
        case EventKind::kServer:
            return "server";
        case EventKind::kBusy:
            return "busy";
        case EventKind::kGap:
            return "gap";
        case EventKind::kBegan:
            return "began";
        case EventKind::kItems:
            return "items";
        case EventKind::kPart:
            return "part";
        case EventKind::kOperation:
            return "operation";
        case EventKind::kCollection:
            break;
    }
    return "collection";
}

std::optional<history::Kind> StoredKind(EventKind kind) {
    switch (kind) {
        case EventKind::kResult:
            return history::Kind::kResult;
        case EventKind::kServer:
            return history::Kind::kServer;
        case EventKind::kBusy:
            return history::Kind::kBusy;
        case EventKind::kGap:
            return history::Kind::kGap;
        default:
            return std::nullopt;
    }
}

Event EventNow(EventKind kind, const char* status) {
    Event event;
    event.kind = kind;
    event.time = std::chrono::system_clock::now();
    event.status = status;
    return event;
}

Event EventOf(const history::Row& row) {
    Event event;
    for (const EventKind kind : {EventKind::kResult, EventKind::kServer, EventKind::kBusy, EventKind::kGap}) {
        if (StoredKind(kind) == row.kind) {
            event.kind = kind;
        }
    }
    event.time = row.time;
    event.item = row.item;
    event.status = row.status;
    event.text = row.text;
    event.cause = row.cause;
    event.begin = row.begin;
    event.duration = row.duration;
    event.seq = row.seq;
    return event;
}

}  // namespace ominspect::gateway
