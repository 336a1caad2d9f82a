// Sends to tasks of other processes, with and without waiting for a reply.
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "common/msg_rules.h"
#include "msg/log.h"
#include "msg/names.h"
#include "msg/process.h"
#include "msg/task_thread.h"

using namespace kivo;
using namespace kivo::msg;

namespace {

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

// Whether a reply comes from the process that was asked. A process that has just restarted may have got the call before
// its change of connection was read here, so the present owner of the name counts too. The daemon answers for those
// that are not there.
bool IsGenuine(const Process& process, const AwaitedReply& awaited, sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    if (sender == nullptr) {
        return false;
    }
    return IsFromDaemon(message) || sender == awaited.owner || sender == process.peers.OwnerOf(awaited.process);
}

void Take(AwaitedReply& awaited, sd_bus_message* message) {
    const void* data = nullptr;
    size_t size = 0;
    if (sd_bus_message_is_method_error(message, nullptr) > 0) {
        awaited.result = ResultOfError(sd_bus_message_get_error(message));
    } else if (sd_bus_message_read_array(message, SD_BUS_TYPE_BYTE, &data, &size) < 0) {
        awaited.result = OS_MSG_ERR_BUS;
    } else if (size > OS_MSG_MAX_PAYLOAD) {
        awaited.result = OS_MSG_ERR_TOO_LARGE;
    } else {
        awaited.reply = MakeResponse(data, size);
        awaited.result = awaited.reply != nullptr ? OS_MSG_OK : OS_MSG_ERR_NO_MEMORY;
    }
    awaited.done = true;
    awaited.waiter.WakeOther();
}

// Sees every message before all others. sd-bus would take a reply from anybody who guesses the cookie of the call.
int OnMessage(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    auto& process = *static_cast<Process*>(userdata);
    process.peers.CatchUp();
    if (process.peers.TakeAnswer(message)) {
        return 1;
    }
    uint64_t cookie = 0;
    if (sd_bus_message_get_reply_cookie(message, &cookie) < 0) {
        return 0;
    }
    const auto found = process.awaited.find(cookie);
    if (found == process.awaited.end()) {
        return 0;
    }
    AwaitedReply& awaited = *found->second;
    if (IsGenuine(process, awaited, message)) {
        Take(awaited, message);
    } else {
        Log(kLogWarning, "a reply in the name of process %s is ignored: %s sent it", awaited.process.c_str(),
            sd_bus_message_get_sender(message));
    }
    return 1;
}

// Keeps a reply awaited while it lives.
class Await {
public:
    Await(Process& process, uint64_t cookie, AwaitedReply& reply) : process_(process), cookie_(cookie) {
        process_.awaited.emplace(cookie, &reply);
    }
    ~Await() { process_.awaited.erase(cookie_); }
    Await(const Await&) = delete;
    Await& operator=(const Await&) = delete;
    Await(Await&&) = delete;
    Await& operator=(Await&&) = delete;

private:
    Process& process_;
    uint64_t cookie_;
};

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

uint32_t SendAndWait(Process& process, Reader::Lock& lock, AwaitedReply& reply, const TagMsgBlock& msg,
                     uint32_t timeoutMs) {
    const auto deadline = Reader::Clock::now() + std::chrono::milliseconds(timeoutMs);
    MessagePtr call;
    const uint32_t made = MakeCall(process.bus.get(), msg, call);
    if (made != OS_MSG_OK) {
        return made;
    }
    reply.process = ReadName(msg.dstProcName, sizeof msg.dstProcName);
    return CallAndWait(process, lock, reply, std::move(call), deadline);
}

}  // namespace

int kivo::msg::StartReplies(Process& process) {
    sd_bus_slot* slot = nullptr;
    const int added = sd_bus_add_filter(process.bus.get(), &slot, OnMessage, &process);
    process.replyFilter.reset(slot);
    return added;
}

uint32_t kivo::msg::CallAndWait(Process& process, Reader::Lock& lock, AwaitedReply& reply, MessagePtr call,
                                Reader::Clock::time_point deadline) {
    reply.owner = process.peers.OwnerOf(reply.process);
    uint64_t cookie = 0;
    const int sent = sd_bus_send(process.bus.get(), call.get(), &cookie);
    call.reset();
    if (sent < 0) {
        return ResultOf(sent);
    }
    const Await await(process, cookie, reply);
    const ActiveCall active(process);
    process.KickIfUnsent();
    process.reader.Wait(lock, reply.waiter, Reader::Rank::kReply, deadline,
                        [&] { return reply.done || process.state != BusState::kAttached; });
    if (reply.done) {
        return reply.result;
    }
    const uint32_t unusable = process.CheckUsable();
    return unusable != OS_MSG_OK ? unusable : OS_MSG_ERR_TIMEOUT;
}

uint32_t OsMsgSynSend(const struct TagMsgBlock* msg, struct TagMsgBlock** resp, uint32_t timeoutMs) {
    return Guarded([&] {
        if (resp != nullptr) {
            *resp = nullptr;
        }
        if (msg == nullptr || resp == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        AwaitedReply reply{Waiter::OfThisThread(), {}, {}};
        if (!reply.waiter.Valid()) {
            return OS_MSG_ERR_NO_MEMORY;
        }
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK) {
            return unusable;
        }
        const uint32_t result = SendAndWait(process, lock, reply, *msg, timeoutMs);
        *resp = reply.reply;
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
