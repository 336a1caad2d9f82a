// Requests and replies as bytes. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ominspect/client/error.h"
#include "ominspect/client/types.h"

namespace ominspect::client::wire {

using Bytes = std::span<const unsigned char>;

// The request's JSON text, every character escaped as JSON wants it. InvalidArgument, Internal (no memory).
Result<std::string> EncodeRequest(const Request& request);

// The texts of 1 to 32 requests, each with its NUL, and an empty one. InvalidArgument, Internal.
Result<std::string> EncodeGroup(std::span<const Request> requests);

// The reply to a run of `item`. Refused: empty; MalformedReply: not a result record, or one of another item.
Result<RunReply> DecodeRunReply(Bytes reply, std::string_view item);

// The reply to a state request. Refused: the server saw no name; MalformedReply: any other answer.
Result<ItemState> DecodeStateReply(Bytes reply);

// The reply to a group request: the task's id. GroupBusy; Refused: no worker, or an empty reply; MalformedReply.
Result<std::uint32_t> DecodeGroupReply(Bytes reply);

// The reply to a stop: whether the server knows such a task. MalformedReply.
Result<bool> DecodeStopReply(Bytes reply);

// The reply to the question how many items are configured. MalformedReply.
Result<std::uint32_t> DecodeCount(Bytes reply);

// The 12296-byte list of configured items. MalformedReply: another size, more than 256 items, or a text without its
// NUL.
Result<std::vector<ConfiguredItem>> DecodeList(Bytes bytes);

// The 6688-byte record of a group run. MalformedReply: another size, or more than 32 items.
Result<GroupRecord> DecodeGroupRecord(Bytes bytes);

// A 192-byte result record. MalformedReply: another size, or a text without its NUL.
Result<ItemResult> DecodeResult(Bytes record);

// The item of a result and the task of a group record, which may be malformed otherwise. Nothing if the bytes do not
// hold that either.
std::optional<std::string> ItemOf(Bytes record);
std::optional<std::uint32_t> TaskOf(Bytes record);

// Whether the result of event 8 says that a run began. The server sends these words before it asks the owner.
bool IsBeginning(const ItemResult& result);

// What a process says that an item measured. MalformedReply: another size, more than 64 values, a text without its NUL,
// an empty name, or a value that is no number.
Result<PerfData> DecodePerfData(Bytes data);

// The data of the busy event: true for busy. MalformedReply: any other value.
Result<bool> DecodeBusy(Bytes data);

}  // namespace ominspect::client::wire
