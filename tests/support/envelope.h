// Messages as the bus delivers them to a handler.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kivo/os_msg.h"

namespace support {

/// An incoming message and its payload: synchronous, from task "cli_task" of process "client" with the reply task
/// "cli_reply", user 1000, unless changed.
class Envelope {
public:
    explicit Envelope(uint32_t msgId);
    Envelope(uint32_t msgId, std::string_view payload);
    Envelope(uint32_t msgId, std::vector<unsigned char> payload);
    Envelope(const Envelope&) = delete;
    Envelope& operator=(const Envelope&) = delete;

    Envelope& Asynchronous();
    Envelope& From(std::string_view proc, std::string_view task, std::string_view replyTask);
    Envelope& Param(uint32_t param);

    TagMsgBlock* Get() { return &m_envelope; }

private:
    std::vector<unsigned char> m_payload;
    TagMsgBlock m_envelope{};
};

}  // namespace support
