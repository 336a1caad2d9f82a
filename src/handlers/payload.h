// Payloads of messages in both directions: what the handlers read out of an incoming envelope, and how they answer.
// Incoming payloads are whatever any process sent: nothing is read beyond dataLen.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/records.h"
#include "kivo/os_msg.h"

/// Whether there is a payload of at least one byte.
bool HasPayload(const TagMsgBlock& msg);

/// The payload as a text of exactly dataLen bytes. Needs a payload.
std::string PayloadText(const TagMsgBlock& msg);

/// The payload's text up to its first NUL. Needs a payload.
std::string PayloadName(const TagMsgBlock& msg);

/// The texts of a payload of texts laid end to end, each with its NUL, up to the first empty one. Needs a payload.
std::vector<std::string> PayloadTexts(const TagMsgBlock& msg);

/// The sender as the client to which asynchronous results go.
InspectClientMsg ClientOf(const TagMsgBlock& msg);

/// Sets the reply to `length` zero bytes. False when there is no memory for them: the reply is then empty.
bool AllocateReply(unsigned int length, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Writes the number that the whole reply consists of. Needs a reply of 4 bytes.
void WriteReply(uint32_t value, std::unique_ptr<unsigned char[]>& reply);
