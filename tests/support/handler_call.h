// Calls one message handler as the dispatcher does.
#pragma once

#include <cstring>
#include <memory>

#include "server/dispatch.h"
#include "support/envelope.h"
#include "support/records.h"

namespace support {

/// A handler's reply; `bytes` is empty also when the handler set a length without a buffer.
struct Reply {
    unsigned int length = 0;
    bool buffer = false;
    Bytes bytes;

    /// The number that a reply of 4 bytes consists of; 4294967295 for any other reply.
    uint32_t Number() const {
        uint32_t number = 4294967295U;
        if (bytes.size() == sizeof(number)) {
            std::memcpy(&number, bytes.data(), sizeof(number));
        }
        return number;
    }

    bool Empty() const { return length == 0 && !buffer; }
};

inline Reply Call(InspectHandler handler, Envelope& message) {
    std::unique_ptr<unsigned char[]> buffer;
    Reply reply;
    handler(message.Get(), buffer, reply.length);
    reply.buffer = buffer != nullptr;
    if (reply.buffer) {
        reply.bytes.assign(buffer.get(), buffer.get() + reply.length);
    }
    return reply;
}

}  // namespace support
