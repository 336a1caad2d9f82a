// Requests and replies as bytes: JSON through cJSON, records through length-checked copies.
#include "wire.h"

#include <cstring>
#include <memory>
#include <optional>

#include <cjson/cJSON.h>

#include "kivo/os_msg.h"
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
        case ErrorCode::kDenied:
            return "denied";
        case ErrorCode::kMalformedReply:
            return "malformed-reply";
        case ErrorCode::kInternal:
            break;
    }
    return "internal";
}

std::optional<Error> CheckItemName(std::string_view item) {
    if (item.empty()) return Error{ErrorCode::kInvalidArgument, "the item name is empty"};
    return CheckText("the item name", item, OM_INSPECT_NAME_SIZE - 1);
}

std::optional<Error> CheckRequest(std::string_view item, std::string_view cmd) {
    if (auto error = CheckItemName(item)) return error;
    return CheckText("the cmd", cmd, kMaxCmd);
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

// A text field of a record: its characters before the NUL that must be there.
template <std::size_t size>
std::optional<std::string> TextOf(const char (&field)[size]) {
    const std::size_t length = strnlen(field, size);
    if (length == size) return std::nullopt;
    return std::string(field, length);
}

std::optional<std::uint32_t> NumberOf(Bytes data) {
    std::uint32_t number = 0;
    if (data.size() != sizeof number) return std::nullopt;
    std::memcpy(&number, data.data(), sizeof number);
    return number;
}

}  // namespace

Result<std::string> EncodeRequest(std::string_view item, std::string_view cmd) {
    if (auto error = CheckRequest(item, cmd)) return *error;
    const std::unique_ptr<cJSON, JsonDelete> request(cJSON_CreateObject());
    const bool built = request && cJSON_AddStringToObject(request.get(), "name", std::string(item).c_str()) &&
                       cJSON_AddStringToObject(request.get(), "cmd", std::string(cmd).c_str());
    const std::unique_ptr<char, JsonTextFree> text(built ? cJSON_PrintUnformatted(request.get()) : nullptr);
    if (!text) return Error{ErrorCode::kInternal, "no memory for the request"};
    return std::string(text.get());
}

Result<ItemResult> DecodeResult(Bytes record) {
    tagKivoOmInspectionResult raw{};
    if (record.size() != sizeof raw) {
        return Malformed("a result of " + std::to_string(record.size()) + " bytes instead of 192");
    }
    std::memcpy(&raw, record.data(), sizeof raw);
    auto name = TextOf(raw.name);
    auto status = TextOf(raw.status);
    auto text = TextOf(raw.text);
    if (!name || !status || !text) return Malformed("a result with a text that does not end");
    return ItemResult{std::move(*name), std::move(*status), std::move(*text)};
}

Result<RunReply> DecodeRunReply(Bytes reply, std::string_view item) {
    if (reply.empty()) return Error{ErrorCode::kRefused, "the server gave an empty reply"};
    auto decoded = DecodeResult(reply);
    if (!decoded) return decoded.Failure();
    const bool unsupported = decoded->status == "fail" && decoded->text == "no support";
    // The server does not wait for a result that its owner reports later; its reply then names no item.
    if (decoded->name.empty() && unsupported) {
        return RunReply{RunOutcome::kPending, {std::string(item), "running", "the owner reports later"}};
    }
    if (decoded->name != item) return Malformed("a result of another item");
    return RunReply{unsupported ? RunOutcome::kUnknownItem : RunOutcome::kFinal, std::move(*decoded)};
}

Result<ItemState> DecodeStateReply(Bytes reply) {
    const auto number = NumberOf(reply);
    if (!number) return Malformed("a state of " + std::to_string(reply.size()) + " bytes instead of 4");
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

Result<bool> DecodeBusy(Bytes data) {
    const auto number = NumberOf(data);
    if (!number || *number > 1) return Malformed("a busy event that is neither busy nor idle");
    return *number == 0;
}

Error FromBus(std::uint32_t code) {
    ErrorCode kind = ErrorCode::kInternal;
    switch (code) {
        case OS_MSG_ERR_PARAM:
            kind = ErrorCode::kInvalidArgument;
            break;
        case OS_MSG_ERR_ATTACHED:
        case OS_MSG_ERR_NAME_TAKEN:
            kind = ErrorCode::kAlreadyOpen;
            break;
        case OS_MSG_ERR_NOT_ATTACHED:
        case OS_MSG_ERR_NO_BUS:
            kind = ErrorCode::kBusUnreachable;
            break;
        case OS_MSG_ERR_ABSENT:
        case OS_MSG_ERR_NO_TASK:
        case OS_MSG_ERR_DIED:
            kind = ErrorCode::kServerAbsent;
            break;
        case OS_MSG_ERR_TIMEOUT:
            kind = ErrorCode::kTimeLimit;
            break;
        case OS_MSG_ERR_QUEUE_FULL:
            kind = ErrorCode::kRefused;
            break;
        case OS_MSG_ERR_DENIED:
            kind = ErrorCode::kDenied;
            break;
        default:
            break;
    }
    return {kind, OsMsgResultText(code)};
}

}  // namespace wire
}  // namespace ominspect::client
