// Reads what the handlers need out of an incoming envelope and its payload. Payloads are what any process sent:
// nothing is read beyond dataLen.
#pragma once

#include <string>
#include <vector>

#include "handlers/records.h"
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
