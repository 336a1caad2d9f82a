// Sends to tasks of other processes, with and without waiting for a reply.
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/msg_rules.h"
#include "msg/log.h"
#include "msg/names.h"
#include "msg/process.h"
#include "msg/task_thread.h"

using namespace kivo;
using namespace kivo::msg;

namespace {

// A synchronous send that waits. It lives on the stack of its thread.
struct PendingReply {
    Waiter& waiter;
    bool done = false;
    uint32_t result = OS_MSG_OK;
    TagMsgBlock* reply = nullptr;
};

uint32_t ResultOfError(const sd_bus_error* error) {
    struct Row {
        std::string_view name;
        uint32_t result;
    };
    static constexpr Row kRows[] = {
        {SD_BUS_ERROR_SERVICE_UNKNOWN, OS_MSG_ERR_ABSENT},
        {SD_BUS_ERROR_NAME_HAS_NO_OWNER, OS_MSG_ERR_ABSENT},
        {SD_BUS_ERROR_NO_REPLY, OS_MSG_ERR_DIED},
        {SD_BUS_ERROR_DISCONNECTED, OS_MSG_ERR_NO_BUS},
        {SD_BUS_ERROR_UNKNOWN_OBJECT, OS_MSG_ERR_NO_TASK},
        {SD_BUS_ERROR_UNKNOWN_METHOD, OS_MSG_ERR_NO_TASK},
        {SD_BUS_ERROR_UNKNOWN_INTERFACE, OS_MSG_ERR_NO_TASK},
        {SD_BUS_ERROR_ACCESS_DENIED, OS_MSG_ERR_DENIED},
        {SD_BUS_ERROR_NO_MEMORY, OS_MSG_ERR_NO_MEMORY},
        {SD_BUS_ERROR_LIMITS_EXCEEDED, OS_MSG_ERR_NO_MEMORY},
        {kErrorQueueFull, OS_MSG_ERR_QUEUE_FULL},
        {kErrorTooLarge, OS_MSG_ERR_TOO_LARGE},
    };
    for (const Row& row : kRows) {
        if (row.name == error->name) {
            return row.result;
        }
    }
    Log(kLogWarning, "a message was answered with %s: %s", error->name,
        error->message != nullptr ? error->message : "");
    return OS_MSG_ERR_BUS;
}

// The reply's envelope and payload in one block, as OsMsgSynRespFree frees it.
TagMsgBlock* MakeResponse(const void* data, size_t size) {
    auto* block = static_cast<TagMsgBlock*>(std::calloc(1, sizeof(TagMsgBlock) + size));
    if (block == nullptr || size == 0) {
        return block;
    }
    block->data = reinterpret_cast<unsigned char*>(block + 1);
    block->dataLen = static_cast<uint32_t>(size);
    std::memcpy(block->data, data, size);
    return block;
}

int OnReply(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    auto& pending = *static_cast<PendingReply*>(userdata);
    const void* data = nullptr;
    size_t size = 0;
    if (sd_bus_message_is_method_error(message, nullptr) > 0) {
        // When the bus goes away, sd-bus itself answers the open calls, with the error of a peer that died.
        const bool lost = sd_bus_is_open(sd_bus_message_get_bus(message)) <= 0;
        pending.result = lost ? OS_MSG_ERR_NO_BUS : ResultOfError(sd_bus_message_get_error(message));
    } else if (sd_bus_message_read_array(message, SD_BUS_TYPE_BYTE, &data, &size) < 0) {
        pending.result = OS_MSG_ERR_BUS;
    } else if (size > OS_MSG_MAX_PAYLOAD) {
        pending.result = OS_MSG_ERR_TOO_LARGE;
    } else {
        pending.reply = MakeResponse(data, size);
        if (pending.reply == nullptr) {
            pending.result = OS_MSG_ERR_NO_MEMORY;
        }
    }
    pending.done = true;
    pending.waiter.Wake();
    return 1;
}

// Checks an outgoing envelope and makes it into a method call.
uint32_t MakeCall(sd_bus* bus, const TagMsgBlock& msg, MessagePtr& call) {
    if (const uint32_t wrong = CheckMessage(msg); wrong != OS_MSG_OK) {
        return wrong;
    }
    const std::string proc = ReadName(msg.dstProcName, sizeof msg.dstProcName);
    const std::string task = ReadName(msg.dstTaskName, sizeof msg.dstTaskName);
    std::string reply = ReadName(msg.replyTaskName, sizeof msg.replyTaskName);
    const std::string& source = TaskThreadScope::TaskName();
    if (reply.empty()) {
        reply = source;
    }

    sd_bus_message* raw = nullptr;
    int result =
        sd_bus_message_new_method_call(bus, &raw, BusNameOf(proc).c_str(), PathOf(task).c_str(), kInterface, "Send");
    if (result < 0) {
        return ResultOf(result);
    }
    call.reset(raw);
    // The bus must not start a program for this message: a destination that is not there is an error.
    result = sd_bus_message_set_auto_start(raw, 0);
    if (result >= 0) {
        result = sd_bus_message_append(raw, "uuss", msg.msgId, msg.param, source.c_str(), reply.c_str());
    }
    if (result >= 0) {
        result = sd_bus_message_append_array(raw, SD_BUS_TYPE_BYTE, msg.data, msg.dataLen);
    }
    return result >= 0 ? OS_MSG_OK : ResultOf(result);
}

uint32_t SendAndWait(Process& process, Reader::Lock& lock, PendingReply& pending, const TagMsgBlock& msg,
                     uint32_t timeoutMs) {
    const auto deadline = Reader::Clock::now() + std::chrono::milliseconds(timeoutMs);
    MessagePtr call;
    const uint32_t made = MakeCall(process.bus.get(), msg, call);
    if (made != OS_MSG_OK) {
        return made;
    }
    sd_bus_slot* raw = nullptr;
    // The limit is kept here: sd-bus would keep it only while somebody reads.
    const int sent = sd_bus_call_async(process.bus.get(), &raw, call.get(), OnReply, &pending, UINT64_MAX);
    if (sent < 0) {
        return ResultOf(sent);
    }
    const SlotPtr slot(raw);  // dropping it ends the interest in the reply
    call.reset();
    const ActiveCall active(process);
    process.KickIfUnsent();
    process.reader.Wait(lock, pending.waiter, Reader::Rank::kReply, deadline,
                        [&] { return pending.done || process.state != BusState::kAttached; });
    if (pending.done) {
        return pending.result;
    }
    const uint32_t unusable = process.CheckUsable();
    return unusable != OS_MSG_OK ? unusable : OS_MSG_ERR_TIMEOUT;
}

}  // namespace

uint32_t OsMsgSynSend(const struct TagMsgBlock* msg, struct TagMsgBlock** resp, uint32_t timeoutMs) {
    return Guarded([&] {
        if (resp != nullptr) {
            *resp = nullptr;
        }
        if (msg == nullptr || resp == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        PendingReply pending{Waiter::OfThisThread()};
        if (!pending.waiter.Valid()) {
            return OS_MSG_ERR_NO_MEMORY;
        }
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK) {
            return unusable;
        }
        const uint32_t result = SendAndWait(process, lock, pending, *msg, timeoutMs);
        *resp = pending.reply;
        return result;
    });
}

void OsMsgSynRespFree(struct TagMsgBlock* resp) {
    std::free(resp);
}

uint32_t OsMsgAsynSend(const struct TagMsgBlock* msg) {
    return Guarded([&] {
        if (msg == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK) {
            return unusable;
        }
        MessagePtr call;
        const uint32_t made = MakeCall(process.bus.get(), *msg, call);
        if (made != OS_MSG_OK) {
            return made;
        }
        int sent = sd_bus_message_set_expect_reply(call.get(), 0);
        if (sent >= 0) {
            sent = sd_bus_send(process.bus.get(), call.get(), nullptr);
        }
        if (sent < 0) {
            return ResultOf(sent);
        }
        process.KickIfUnsent();
        return OS_MSG_OK;
    });
}
