// A name must be decoded to know that it is UTF-8.
#include "common/msg_rules.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace kivo {

namespace {

// The length of the UTF-8 sequence (RFC 3629) at the front of a text; 0 when there is none.
size_t SequenceLength(std::string_view text) {
    const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    const size_t length = first < 0x80   ? 1
                          : first < 0xc2 ? 0
                          : first < 0xe0 ? 2
                          : first < 0xf0 ? 3
                          : first < 0xf5 ? 4
                                         : 0;
    if (length == 0 || text.size() < length) {
        return 0;
    }
    uint32_t code = length == 1 ? first : first & (0x7fU >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0U) != 0x80) {
            return 0;
        }
        code = code << 6U | (byte(i) & 0x3fU);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xd800 && code < 0xe000;
    return overlong || surrogate || code > 0x10ffff ? 0 : length;
}

}  // namespace

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = SequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

bool IsValidName(std::string_view name) {
    return !name.empty() && name.size() < OS_MSG_NAME_SIZE && name.find('\0') == std::string_view::npos && IsUtf8(name);
}

std::string ReadName(const char* field, size_t size) {
    std::string name(field, strnlen(field, size));
    return IsValidName(name) ? name : std::string();
}

void WriteName(char (&field)[OS_MSG_NAME_SIZE], std::string_view name) {
    std::fill(std::begin(field), std::end(field), '\0');
    std::copy_n(name.begin(), std::min<size_t>(name.size(), OS_MSG_NAME_SIZE - 1), std::begin(field));
}

uint32_t CheckTask(const OsTaskDescriptor& task) {
    const bool good = !ReadName(task.name, sizeof task.name).empty() && task.queueDepth > 0 && task.handler != nullptr;
    return good ? OS_MSG_OK : OS_MSG_ERR_PARAM;
}

bool HasRoom(size_t taken, size_t more, size_t limit, bool senderWaits) {
    return taken + more <= (senderWaits ? limit - limit / 8 : limit);
}

uint32_t CheckPayload(const void* data, uint32_t dataLen) {
    if (data == nullptr && dataLen != 0) {
        return OS_MSG_ERR_PARAM;
    }
    return dataLen > OS_MSG_MAX_PAYLOAD ? OS_MSG_ERR_TOO_LARGE : OS_MSG_OK;
}

uint32_t CheckMessage(const TagMsgBlock& message) {
    const bool replyTask =
        message.replyTaskName[0] == '\0' || !ReadName(message.replyTaskName, sizeof message.replyTaskName).empty();
    if (!replyTask || ReadName(message.dstProcName, sizeof message.dstProcName).empty() ||
        ReadName(message.dstTaskName, sizeof message.dstTaskName).empty()) {
        return OS_MSG_ERR_PARAM;
    }
    return CheckPayload(message.data, message.dataLen);
}

uint64_t TokenOf(const TagMsgBlock& message) {
    uint64_t token = 0;
    std::memcpy(&token, message.reserved4, sizeof token);
    return token;
}

void SetToken(TagMsgBlock& message, uint64_t token) {
    std::memcpy(message.reserved4, &token, sizeof token);
}

}  // namespace kivo
