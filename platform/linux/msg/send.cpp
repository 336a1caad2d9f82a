// Sends to tasks of other processes, with and without waiting for a reply.
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/msg_rules.h"
#include "msg/names.h"
#include "msg/process.h"
#include "msg/task_thread.h"

using namespace kivo;
using namespace kivo::msg;

namespace {

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

// Takes the payload out of a reply.
uint32_t ReadReply(sd_bus_message* reply, TagMsgBlock*& response) {
    const void* data = nullptr;
    size_t size = 0;
    if (sd_bus_message_read_array(reply, SD_BUS_TYPE_BYTE, &data, &size) < 0) {
        return OS_MSG_ERR_BUS;
    }
    if (size > OS_MSG_MAX_PAYLOAD) {
        return OS_MSG_ERR_TOO_LARGE;
    }
    response = MakeResponse(data, size);
    return response != nullptr ? OS_MSG_OK : OS_MSG_ERR_NO_MEMORY;
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
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        const auto deadline = Reader::Clock::now() + std::chrono::milliseconds(timeoutMs);
        uint32_t result = process.CheckUsable();
        MessagePtr call;
        if (result == OS_MSG_OK) {
            result = MakeCall(process.bus.get(), *msg, call);
        }
        if (result != OS_MSG_OK) {
            return result;
        }
        AwaitedReply reply(process, ReadName(msg->dstProcName, sizeof msg->dstProcName));
        result = reply.Send(std::move(call), msg->dataLen);
        if (result == OS_MSG_OK) {
            result = reply.Wait(lock, deadline);
        }
        return result == OS_MSG_OK ? ReadReply(reply.Reply(), *resp) : result;
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
            sent = process.unsent.Send(process.bus.get(), call.get(), msg->dataLen);
        }
        if (sent < 0) {
            return ResultOf(sent);
        }
        process.KickIfUnsent();
        return OS_MSG_OK;
    });
}
