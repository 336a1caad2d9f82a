// Texts are cut at dataLen, whether or not the sender ended them with a NUL.
#include "handlers/payload.h"

#include <cstring>
#include <new>

#include "base/field_text.h"

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

std::vector<std::string> PayloadTexts(const TagMsgBlock& msg) {
    std::vector<std::string> texts;
    const char* text = reinterpret_cast<const char*>(msg.data);
    const char* const end = text + msg.dataLen;
    while (text < end && *text != '\0') {
        texts.emplace_back(text, strnlen(text, static_cast<std::size_t>(end - text)));
        text += texts.back().length() + 1;
    }
    return texts;
}

InspectClientMsg ClientOf(const TagMsgBlock& msg) {
    return {FieldText(msg.srcProcName).c_str(), FieldText(msg.replyTaskName).c_str()};
}

bool AllocateReply(unsigned int length, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength) {
    replyLength = length;
    reply.reset(new (std::nothrow) unsigned char[length]());
    if (reply == nullptr) {
        replyLength = 0;
    }
    return reply != nullptr;
}

void WriteReply(uint32_t value, std::unique_ptr<unsigned char[]>& reply) {
    std::memcpy(reply.get(), &value, sizeof(value));
}
