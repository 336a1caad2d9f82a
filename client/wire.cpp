// Bytes from outside become records only after their size and the ends of their texts are checked.
#include "wire.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <optional>

#include <cjson/cJSON.h>

#include "ominspect/perfdata.h"
#include "ominspect/records.h"

namespace ominspect::client {
namespace {

constexpr std::size_t kMaxCmd = 127;

std::optional<Error> CheckText(const char* what, std::string_view text, std::size_t max) {
    if (text.size() > max) {
        return Error{ErrorCode::kInvalidArgument,
                     std::string(what) + " is longer than " + std::to_string(max) + " bytes"};
    }
    if (text.find('\0') != std::string_view::npos) {
        return Error{ErrorCode::kInvalidArgument, std::string(what) + " holds a NUL byte"};
    }
    return std::nullopt;
}

}  // namespace

const char* ErrorWord(ErrorCode code) {
    switch (code) {
        case ErrorCode::kInvalidArgument:
            return "invalid-argument";
        case ErrorCode::kAlreadyOpen:
            return "already-open";
        case ErrorCode::kBusUnreachable:
            return "bus-unreachable";
        case ErrorCode::kServerAbsent:
            return "server-absent";
        case ErrorCode::kTimeLimit:
            return "time-limit";
        case ErrorCode::kRefused:
            return "refused";
        case ErrorCode::kGroupBusy:
            return "group-busy";
        case ErrorCode::kCancelled:
            return "cancelled";
        case ErrorCode::kDenied:
            return "denied";
        case ErrorCode::kMalformedReply:
            return "malformed-reply";
        case ErrorCode::kInternal:
            break;
    }
    return "internal";
}

RequestKind KindOf(const Request& request) {
    return request.cmd == "stop" || request.cmd == "done" ? RequestKind::kCommand : RequestKind::kRun;
}

bool IsUnknownItem(const ItemResult& result) {
    return result.status == "fail" && result.text == "no support";
}

std::string UnknownItemText(std::string_view item) {
    return "item unknown: no process has registered \"" + std::string(item) + "\" with the server";
}

std::optional<Error> CheckItemName(std::string_view item) {
    if (item.empty()) {
        return Error{ErrorCode::kInvalidArgument, "the item name is empty"};
    }
    return CheckText("the item name", item, OM_INSPECT_NAME_SIZE - 1);
}

std::optional<Error> CheckRequest(const Request& request) {
    if (auto error = CheckItemName(request.item)) {
        return error;
    }
    return CheckText("the cmd", request.cmd, kMaxCmd);
}

namespace wire {
namespace {

struct JsonDelete {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};

struct JsonTextFree {
    void operator()(char* text) const { cJSON_free(text); }
};

Error Malformed(std::string text) {
    return {ErrorCode::kMalformedReply, std::move(text)};
}

// The text in a field of a record; nothing if no NUL ends it.
template <std::size_t size>
std::optional<std::string> TextOf(const char (&field)[size]) {
    const std::size_t length = strnlen(field, size);
    if (length == size) {
        return std::nullopt;
    }
    return std::string(field, length);
}

// The same, but a text that no NUL ends is cut at the end of its field.
template <std::size_t size>
std::string CutTextOf(const char (&field)[size]) {
    return std::string(field, strnlen(field, size));
}

std::optional<std::uint32_t> NumberOf(Bytes data) {
    std::uint32_t number = 0;
    if (data.size() != sizeof number) {
        return std::nullopt;
    }
    std::memcpy(&number, data.data(), sizeof number);
    return number;
}

}  // namespace

Result<std::string> EncodeRequest(const Request& request) {
    if (auto error = CheckRequest(request)) {
        return *error;
    }
    const std::unique_ptr<cJSON, JsonDelete> json(cJSON_CreateObject());
    const bool built = json && cJSON_AddStringToObject(json.get(), "name", request.item.c_str()) &&
                       cJSON_AddStringToObject(json.get(), "cmd", request.cmd.c_str());
    const std::unique_ptr<char, JsonTextFree> text(built ? cJSON_PrintUnformatted(json.get()) : nullptr);
    if (!text) {
        return Error{ErrorCode::kInternal, "no memory for the request"};
    }
    return std::string(text.get());
}

Result<std::string> EncodeGroup(std::span<const Request> requests) {
    if (requests.empty()) {
        return Error{ErrorCode::kInvalidArgument, "the group is empty"};
    }
    if (requests.size() > kGroupSlots) {
        return Error{ErrorCode::kInvalidArgument, "the group has more than " + std::to_string(kGroupSlots) + " items"};
    }
    std::string payload;
    for (const Request& request : requests) {
        const auto text = EncodeRequest(request);
        if (!text) {
            return text.Failure();
        }
        payload += *text + '\0';
    }
    return payload + '\0';
}

namespace {

// A record of this type. The bytes must have exactly its size.
template <typename Record>
Result<Record> RecordOf(Bytes bytes, const char* what) {
    Record record{};
    if (bytes.size() != sizeof record) {
        return Malformed(std::string(what) + " of " + std::to_string(bytes.size()) + " bytes instead of " +
                         std::to_string(sizeof record));
    }
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

Result<ItemResult> ResultOf(const tagKivoOmInspectionResult& raw) {
    auto name = TextOf(raw.name);
    auto status = TextOf(raw.status);
    auto text = TextOf(raw.text);
    if (!name || !status || !text) {
        return Malformed("a result with a text that does not end");
    }
    return ItemResult{std::move(*name), std::move(*status), std::move(*text)};
}

// The latest time that SystemTime can hold, in ms.
constexpr std::uint64_t kLatest = static_cast<std::uint64_t>(
    std::chrono::duration_cast<std::chrono::milliseconds>(SystemTime::max().time_since_epoch()).count());

std::optional<SystemTime> TimeOf(std::uint64_t milliseconds) {
    if (milliseconds == 0) {
        return std::nullopt;
    }
    return SystemTime(std::chrono::milliseconds(milliseconds));
}

}  // namespace

Result<ItemResult> DecodeResult(Bytes record) {
    const auto raw = RecordOf<tagKivoOmInspectionResult>(record, "a result");
    if (!raw) {
        return raw.Failure();
    }
    return ResultOf(*raw);
}

Result<GroupRecord> DecodeGroupRecord(Bytes bytes) {
    const auto raw = RecordOf<tagKivoOmInspectionGroupResult>(bytes, "a group record");
    if (!raw) {
        return raw.Failure();
    }
    if (raw->count > kGroupSlots) {
        return Malformed("a group record of " + std::to_string(raw->count) + " items");
    }
    GroupRecord record{raw->taskId, {}};
    for (std::uint32_t i = 0; i < raw->count; ++i) {
        const tagKivoOmInspectionDataItem& item = raw->items[i];
        if (item.startTime > kLatest || item.endTime > kLatest) {
            return Malformed("a group record with an absurd time");
        }
        const bool isMalformed = !ResultOf(item.result);
        record.items.push_back(
            {{CutTextOf(item.result.name), CutTextOf(item.result.status), CutTextOf(item.result.text)},
             isMalformed,
             TimeOf(item.startTime),
             TimeOf(item.endTime)});
    }
    return record;
}

Result<std::vector<ConfiguredItem>> DecodeList(Bytes bytes) {
    constexpr std::int64_t kSyncBit = 1;
    const auto raw = RecordOf<tagKivoOmInspectionItemList>(bytes, "an item list");
    if (!raw) {
        return raw.Failure();
    }
    if (raw->count > OM_INSPECT_LIST_SLOTS) {
        return Malformed("a list of " + std::to_string(raw->count) + " items");
    }
    std::vector<ConfiguredItem> items;
    for (std::uint32_t i = 0; i < raw->count; ++i) {
        const tagKivoOmInspectionItem& item = raw->items[i];
        auto name = TextOf(item.name);
        auto level = TextOf(item.level);
        if (!name || !level) {
            return Malformed("a list with a text that does not end");
        }
        items.push_back({std::move(*name), std::move(*level), (item.featureBits & kSyncBit) != 0});
    }
    return items;
}

Result<RunReply> DecodeRunReply(Bytes reply, std::string_view item) {
    if (reply.empty()) {
        return Error{ErrorCode::kRefused, "the server gave an empty reply"};
    }
    auto decoded = DecodeResult(reply);
    if (!decoded) {
        return decoded.Failure();
    }
    // If the owner reports later, the server does not wait, and its reply names no item.
    if (decoded->name.empty() && IsUnknownItem(*decoded)) {
        return RunReply{{std::string(item), "running", "the owner reports later"}, true};
    }
    if (decoded->name != item) {
        return Malformed("a result of another item");
    }
    return RunReply{std::move(*decoded), false};
}

Result<std::uint32_t> DecodeCount(Bytes reply) {
    const auto number = NumberOf(reply);
    if (!number) {
        return Malformed("a count of " + std::to_string(reply.size()) + " bytes instead of 4");
    }
    return *number;
}

Result<std::uint32_t> DecodeGroupReply(Bytes reply) {
    constexpr std::uint32_t kNoWorker = 14;
    constexpr std::uint32_t kGroupRuns = 16;
    constexpr std::uint32_t kFirstTaskId = 17;
    if (reply.empty()) {
        return Error{ErrorCode::kRefused, "the server gave an empty reply"};
    }
    const auto number = NumberOf(reply);
    if (!number) {
        return Malformed("a task id of " + std::to_string(reply.size()) + " bytes instead of 4");
    }
    if (*number == kGroupRuns) {
        return Error{ErrorCode::kGroupBusy, "the server runs such a group already"};
    }
    if (*number == kNoWorker) {
        return Error{ErrorCode::kRefused, "the server has no worker for the group"};
    }
    if (*number < kFirstTaskId) {
        return Malformed("the task id " + std::to_string(*number));
    }
    return *number;
}

Result<bool> DecodeStopReply(Bytes reply) {
    const auto number = NumberOf(reply);
    if (!number || *number > 1) {
        return Malformed("a reply to a stop that is neither 0 nor 1");
    }
    return *number == 0;
}

Result<ItemState> DecodeStateReply(Bytes reply) {
    const auto number = NumberOf(reply);
    if (!number) {
        return Malformed("a state of " + std::to_string(reply.size()) + " bytes instead of 4");
    }
    switch (*number) {
        case 0:
            return ItemState::kNotIdle;
        case 1:
            return ItemState::kIdleOrUnknown;
        case 2:
            return Error{ErrorCode::kRefused, "the server saw no item name"};
        default:
            return Malformed("an unknown state " + std::to_string(*number));
    }
}

std::optional<std::string> ItemOf(Bytes record) {
    char name[OM_INSPECT_NAME_SIZE]{};
    if (record.size() < sizeof name) {
        return std::nullopt;
    }
    std::memcpy(name, record.data(), sizeof name);
    return TextOf(name);
}

std::optional<std::uint32_t> TaskOf(Bytes record) {
    if (record.size() < sizeof(std::uint32_t)) {
        return std::nullopt;
    }
    return NumberOf(record.first(sizeof(std::uint32_t)));
}

bool IsBeginning(const ItemResult& result) {
    return result.status == "running" && result.text == "begin";
}

Result<PerfData> DecodePerfData(Bytes data) {
    OmInspectPerfHead head{};
    if (data.size() < sizeof head) {
        return Malformed("values of " + std::to_string(data.size()) + " bytes");
    }
    std::memcpy(&head, data.data(), sizeof head);
    data = data.subspan(sizeof head);
    const auto item = TextOf(head.item);
    if (!item || item->empty()) {
        return Malformed("values without the item's name");
    }
    if (head.count > OM_INSPECT_PERF_SLOTS || data.size() != head.count * sizeof(OmInspectPerfValue)) {
        return Malformed(std::to_string(data.size()) + " bytes of " + std::to_string(head.count) + " values");
    }
    PerfData perfData{*item, {}};
    for (; !data.empty(); data = data.subspan(sizeof(OmInspectPerfValue))) {
        OmInspectPerfValue record{};
        std::memcpy(&record, data.data(), sizeof record);
        const auto label = TextOf(record.label);
        const auto unit = TextOf(record.unit);
        const auto warn = TextOf(record.warn);
        const auto crit = TextOf(record.crit);
        if (!label || label->empty() || !unit || !warn || !crit || !std::isfinite(record.value)) {
            return Malformed("a value that is none");
        }
        perfData.values.push_back({*label, record.value, *unit, *warn, *crit,
                                   std::isfinite(record.min) ? std::optional(record.min) : std::nullopt,
                                   std::isfinite(record.max) ? std::optional(record.max) : std::nullopt});
    }
    return perfData;
}

Result<bool> DecodeBusy(Bytes data) {
    const auto number = NumberOf(data);
    if (!number || *number > 1) {
        return Malformed("a busy event that is neither busy nor idle");
    }
    return *number == 0;
}

}  // namespace wire
}  // namespace ominspect::client
