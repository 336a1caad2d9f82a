// The rules of the message layer that hold on every platform: names, payloads, and the token of an owed reply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kivo/os_msg.h"

namespace kivo {

bool IsUtf8(std::string_view text);

/// 1 to 15 bytes of UTF-8 without a NUL.
bool IsValidName(std::string_view name);

/// The text in a NUL-padded field of `size` bytes; empty when it is no valid name.
std::string ReadName(const char* field, size_t size);

/// Copies a valid name, or the empty one, into a field and fills the rest with NULs.
void WriteName(char (&field)[OS_MSG_NAME_SIZE], std::string_view name);

/// What is wrong with a task that is to be created, OS_MSG_OK if nothing.
uint32_t CheckTask(const OsTaskDescriptor& task);

/// Whether `more` fits into a queue that holds `taken` of `limit` messages, or bytes. The last eighth is kept for
/// senders of which nothing waits there yet, so that nobody takes all of a queue.
bool HasRoom(size_t taken, size_t more, size_t limit, bool senderWaits);

/// What is wrong with a payload, OS_MSG_OK if nothing.
uint32_t CheckPayload(const void* data, uint32_t dataLen);

/// What is wrong with a message that is to be sent, OS_MSG_OK if nothing.
uint32_t CheckMessage(const TagMsgBlock& message);

/// The token of the reply that is owed for a message, kept in the envelope's reserved words; 0 for none.
uint64_t TokenOf(const TagMsgBlock& message);
void SetToken(TagMsgBlock& message, uint64_t token);

}  // namespace kivo
