// Reads what the handlers need out of an incoming envelope and its payload.
#include "handlers/payload.h"

#include <cstring>

#include "server/field_text.h"

bool HasPayload(const TagMsgBlock& msg) {
    return msg.data != nullptr && msg.dataLen != 0;
}

std::string PayloadText(const TagMsgBlock& msg) {
    return {reinterpret_cast<const char*>(msg.data), msg.dataLen};
}

std::string PayloadName(const TagMsgBlock& msg) {
    const char* text = reinterpret_cast<const char*>(msg.data);
    return {text, strnlen(text, msg.dataLen)};
}

InspectClientMsg ClientOf(const TagMsgBlock& msg) {
    return {FieldText(msg.srcProcName).c_str(), FieldText(msg.replyTaskName).c_str()};
}
