// Replies to synchronous messages.
#include <algorithm>
#include <cstring>
#include <utility>

#include "fake/journal.h"
#include "fake/msg.h"

using namespace kivo;
using namespace kivo::fake;

namespace {

constexpr size_t kMaxDeferred = 1024;

// Unit tests build envelopes by hand. They may be answered, although nobody waits for that.
bool IsHandMade(const Process& process, const TagMsgBlock& message) {
    return message.msgType == 1 && TokenOf(message) == 0 && IsLenient(process);
}

auto FindOwed(Process& process, const TagMsgBlock& message) {
    return process.owed.find(TokenOf(message));
}

void RecordReply(const Lock& lock, const TagMsgBlock& message, const void* data, uint32_t dataLen) {
    Entry entry;
    entry.kind = Kind::kReply;
    entry.id = message.msgId;
    entry.param = message.param;
    entry.proc.assign(message.srcProcName, strnlen(message.srcProcName, sizeof(message.srcProcName)));
    entry.task.assign(message.srcTaskName, strnlen(message.srcTaskName, sizeof(message.srcTaskName)));
    entry.envelope = message;
    entry.envelope.data = nullptr;
    if (dataLen != 0) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        entry.data.assign(bytes, bytes + dataLen);
    }
    Record(lock, std::move(entry));
}

}  // namespace

uint32_t OsMsgSynSendResp(const struct TagMsgBlock* msg, const void* data, uint32_t dataLen) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsMsgSynSendResp")) {
        return *code;
    }
    if (msg == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    if (const uint32_t wrong = CheckPayload(data, dataLen); wrong != OS_MSG_OK) {
        return wrong;
    }
    Process& process = CurrentProcess();
    if (process.state == Process::State::kOff && !IsLenient(process)) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    const auto owed = FindOwed(process, *msg);
    if (owed != process.owed.end()) {
        auto& request = *owed->second.request;
        request.done = true;
        const auto* bytes = static_cast<const unsigned char*>(data);
        request.reply.assign(bytes, bytes + dataLen);
        Scheduler::Get().Wake(&request);
        process.owed.erase(owed);
    } else if (!IsHandMade(process, *msg)) {
        return OS_MSG_ERR_NO_REQUEST;
    }
    RecordReply(lock, *msg, data, dataLen);
    return OS_MSG_OK;
}

uint32_t OsMsgSynDeferResp(const struct TagMsgBlock* msg) {
    const Lock lock = Hold();
    if (const auto code = Failure(lock, "OsMsgSynDeferResp")) {
        return *code;
    }
    if (msg == nullptr) {
        return OS_MSG_ERR_PARAM;
    }
    Process& process = CurrentProcess();
    const auto owed = FindOwed(process, *msg);
    if (owed == process.owed.end()) {
        return IsHandMade(process, *msg) ? OS_MSG_OK : OS_MSG_ERR_NO_REQUEST;
    }
    const auto deferred = std::ranges::count_if(process.owed, [](const auto& each) { return each.second.deferred; });
    if (static_cast<size_t>(deferred) >= kMaxDeferred) {
        return OS_MSG_ERR_NO_MEMORY;
    }
    owed->second.deferred = true;
    return OS_MSG_OK;
}
