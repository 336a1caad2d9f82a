// The replies of the handlers.
#include "handlers/reply.h"

#include <cstring>
#include <new>

bool AllocateReply(unsigned int length, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLen) {
    replyLen = length;
    reply.reset(new (std::nothrow) unsigned char[length]());
    if (reply == nullptr) {
        replyLen = 0;
    }
    return reply != nullptr;
}

void WriteReply(uint32_t value, std::unique_ptr<unsigned char[]>& reply) {
    std::memcpy(reply.get(), &value, sizeof(value));
}
