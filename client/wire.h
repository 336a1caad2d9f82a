// Requests and replies as bytes, and the bus's result codes as errors. Pure functions.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ominspect/client/error.h"
#include "ominspect/client/types.h"

namespace ominspect::client::wire {

using Bytes = std::span<const unsigned char>;

// The request's JSON text, every character escaped as JSON wants it. InvalidArgument, Internal (no memory).
Result<std::string> EncodeRequest(std::string_view item, std::string_view cmd);

// The reply to a run of `item`. Refused: empty; MalformedReply: no result record, or another item's.
Result<RunReply> DecodeRunReply(Bytes reply, std::string_view item);

// The reply to a state request. Refused: the server saw no name; MalformedReply: not one of its answers.
Result<ItemState> DecodeStateReply(Bytes reply);

// A 192-byte result record. MalformedReply: another size, or a text without its NUL.
Result<ItemResult> DecodeResult(Bytes record);

// The data of the busy event: true for busy. MalformedReply: neither of its values.
Result<bool> DecodeBusy(Bytes data);

// A result code of the message bus that is not OS_MSG_OK.
Error FromBus(std::uint32_t code);

}  // namespace ominspect::client::wire
