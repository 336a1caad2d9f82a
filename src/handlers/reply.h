// The replies of the handlers.
#pragma once

#include <cstdint>
#include <memory>

/// Sets the reply to `length` zero bytes. False when there is no memory for them: the reply is then empty.
bool AllocateReply(unsigned int length, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLen);

/// Writes the number that the whole reply consists of. Needs a reply of 4 bytes.
void WriteReply(uint32_t value, std::unique_ptr<unsigned char[]>& reply);
