#include "support/envelope.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace support {

namespace {

// Cut at the field's size, without a NUL if it is full: a test may want just that.
template <std::size_t N>
void Fill(char (&field)[N], std::string_view text) {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(N, text.size()));
}

}  // namespace

Envelope::Envelope(uint32_t msgId) : Envelope(msgId, std::vector<unsigned char>()) {}

Envelope::Envelope(uint32_t msgId, std::string_view payload)
    : Envelope(msgId, std::vector<unsigned char>(payload.begin(), payload.end())) {}

Envelope::Envelope(uint32_t msgId, std::vector<unsigned char> payload) : m_payload(std::move(payload)) {
    m_envelope.msgType = 1;
    m_envelope.uid = 1000;
    m_envelope.msgId = msgId;
    m_envelope.dataLen = static_cast<uint32_t>(m_payload.size());
    m_envelope.data = m_payload.empty() ? nullptr : m_payload.data();
    Fill(m_envelope.dstProcName, "ominspect");
    Fill(m_envelope.dstTaskName, "iom_srv_task");
    From("client", "cli_task", "cli_reply");
}

Envelope& Envelope::Asynchronous() {
    m_envelope.msgType = 0;
    return *this;
}

Envelope& Envelope::From(std::string_view proc, std::string_view task, std::string_view replyTask) {
    Fill(m_envelope.srcProcName, proc);
    Fill(m_envelope.srcTaskName, task);
    Fill(m_envelope.replyTaskName, replyTask);
    return *this;
}

Envelope& Envelope::Param(uint32_t param) {
    m_envelope.param = param;
    return *this;
}

}  // namespace support
