#include "support/journal_text.h"

#include <algorithm>
#include <cstring>

#include "support/records.h"

namespace support {

namespace {

using kivo::fake::Entry;
using kivo::fake::Kind;

std::string ShowPayload(const Entry& entry) {
    if (entry.data.empty()) {
        return "empty";
    }
    if (entry.data.size() == 4) {
        uint32_t number = 0;
        std::memcpy(&number, entry.data.data(), sizeof(number));
        return std::to_string(number);
    }
    return Show(entry.data);
}

std::string Head(const char* verb, const Entry& entry) {
    return verb + std::to_string(entry.id);
}

std::string Address(const Entry& entry) {
    return entry.proc + ":" + entry.task;
}

}  // namespace

std::string Describe(const Entry& entry) {
    switch (entry.kind) {
        case Kind::kLog:
            return std::to_string(entry.level) + " " + entry.unit + " " +
                   (entry.module == 256 ? "-" : std::to_string(entry.module)) + ": " + entry.text;
        case Kind::kBroadcast:
            return Head("event ", entry) + ": " + ShowPayload(entry);
        case Kind::kAsyncSend:
            return Head("send ", entry) + " to " + Address(entry) + ": " + ShowPayload(entry);
        case Kind::kSyncSend:
            return Head("ask ", entry) + " of " + Address(entry);
        case Kind::kReply:
            return Head("reply ", entry) + ": " + ShowPayload(entry);
        case Kind::kCall:
            return entry.text;
    }
    return "unknown";
}

Lines Steps() {
    Lines lines;
    for (const Entry& entry : kivo::fake::Journal()) {
        lines.push_back(Describe(entry));
    }
    return lines;
}

Lines Steps(std::initializer_list<Kind> kinds) {
    Lines lines;
    for (const Entry& entry : kivo::fake::Journal()) {
        if (std::find(kinds.begin(), kinds.end(), entry.kind) != kinds.end()) {
            lines.push_back(Describe(entry));
        }
    }
    return lines;
}

Lines LogLines() {
    return Steps({Kind::kLog});
}

Lines Events() {
    return Steps({Kind::kBroadcast});
}

}  // namespace support
