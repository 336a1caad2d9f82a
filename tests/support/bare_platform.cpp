#include "support/bare_platform.h"

#include <cstdarg>
#include <cstddef>
#include <cstring>

#include "kivo/om_log_client.h"
#include "kivo/os_thread.h"

namespace {

// A reply and its payload in one block.
struct Response {
    TagMsgBlock envelope{};
    tagKivoOmInspectionResult payload{};
};

static_assert(offsetof(Response, envelope) == 0);

// The one argument of a line that the server has formatted.
void PassOn(const char* format, va_list args) {
    support::bare::Log(std::strcmp(format, "%s") == 0 ? va_arg(args, const char*) : format);
}

}  // namespace

uint32_t OsSleep(uint32_t seconds) {
    for (uint32_t second = 0; second < seconds; ++second) {
        support::bare::Second();
    }
    return 0;
}

uint32_t OsMsgSynSend(const TagMsgBlock* msg, TagMsgBlock** resp, uint32_t /*timeoutMs*/) {
    auto* const response = new Response;
    response->payload = support::bare::Answer(reinterpret_cast<const char*>(msg->data));
    response->envelope.dataLen = sizeof(response->payload);
    response->envelope.data = reinterpret_cast<unsigned char*>(&response->payload);
    *resp = &response->envelope;
    return OS_MSG_OK;
}

// Nothing under test sends one; the server's other parts, which some linkers and build types link as well, do.
uint32_t OsMsgAsynSend(const TagMsgBlock* /*msg*/) {
    return OS_MSG_ERR_ABSENT;
}

void OsMsgSynRespFree(TagMsgBlock* resp) {
    delete reinterpret_cast<Response*>(resp);
}

uint32_t OsMsgBroadcastEvent(const OsMsgEvent* event, uint32_t /*scope*/) {
    support::bare::Event(*event);
    return OS_MSG_OK;
}

uint32_t KivoOmLogClientInit(const char* /*clientName*/, size_t /*length*/) {
    return 0;
}

uint32_t KivoOmLogCreateLog(const KivoOmLogCreation* /*creation*/, KivoOmLogHandle* handle) {
    *handle = 1;
    return 0;
}

uint32_t KivoOmLogClientUnInit() {
    return 0;
}

void KivoOmLogModuleLogRecord(uint8_t /*level*/, KivoOmLogHandle /*handle*/, const char* /*unit*/, uint8_t /*module*/,
                              uint32_t /*line*/, const char* format, ...) {
    va_list args;
    va_start(args, format);
    PassOn(format, args);
    va_end(args);
}

void KivoOmLogGeneralLogRecord(uint8_t /*level*/, KivoOmLogHandle /*handle*/, const char* /*unit*/, uint32_t /*line*/,
                               const char* format, ...) {
    va_list args;
    va_start(args, format);
    PassOn(format, args);
    va_end(args);
}
