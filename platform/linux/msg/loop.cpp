// Message loops, and the replies that handlers owe.
#include <cerrno>
#include <new>
#include <utility>

#include "common/msg_rules.h"
#include "msg/log.h"
#include "msg/names.h"
#include "msg/process.h"
#include "msg/task_thread.h"

using namespace kivo;
using namespace kivo::msg;

namespace {

constexpr size_t kMaxDeferred = 1024;

// Notes the reply that is owed for a message. Returns its token; 0 when the message wants none, or its sender has left.
// Without memory the message keeps its reply.
uint64_t NoteOwedReply(Process& process, Incoming& message) {
    if (!message.reply) {
        return 0;
    }
    const char* sender = sd_bus_message_get_destination(message.reply.get());
    if (sender == nullptr || !process.peers.Follows(sender)) {
        message.reply.reset();
        return 0;
    }
    const uint64_t token = ++process.lastToken;
    process.owed[token].reply = std::move(message.reply);
    return token;
}

// Answers a message that no handler will see. sd-bus makes an error from the call only, which is gone: another one with
// its cookie stands in for it.
void Refuse(Process& process, Incoming& message) {
    const MessagePtr reply = std::move(message.reply);
    uint64_t cookie = 0;
    if (!reply || sd_bus_message_get_reply_cookie(reply.get(), &cookie) < 0) {
        return;
    }
    const char* sender = sd_bus_message_get_destination(reply.get());
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_call(process.bus.get(), &raw, sender, "/", kInterface, "Send");
    const MessagePtr call(raw);
    if (result >= 0) {
        result = sd_bus_message_seal(call.get(), cookie, 0);
    }
    sd_bus_message* error = nullptr;
    if (result >= 0) {
        result = sd_bus_message_new_method_errno(call.get(), &error, ENOMEM, nullptr);
    }
    const MessagePtr refusal(error);
    if (result >= 0 && sd_bus_message_set_destination(refusal.get(), sender) >= 0 &&
        process.unsent.Send(process.bus.get(), refusal.get(), 0) >= 0) {
        process.KickIfUnsent();
    }
}

void Handle(Process& process, Reader::Lock& lock, const Task& task, Incoming& message) {
    const uint64_t token = NoteOwedReply(process, message);
    SetToken(message.block, token);
    WriteName(message.block.dstProcName, process.name);
    lock.unlock();
    const uint32_t result = Guarded([&] { return task.handler(&message.block); });
    if (result != 0) {
        Log(kLogInfo, "task %s: message %u was answered with %u by its handler", task.name.c_str(), message.block.msgId,
            result);
    }
    lock.lock();
    const auto owed = process.owed.find(token);
    if (owed != process.owed.end() && !owed->second.deferred) {
        process.owed.erase(owed);
    }
}

// Notes the end of a message loop, however it ends.
class LoopEnd {
public:
    explicit LoopEnd(Task& task) : task_(task) {}
    ~LoopEnd() {
        task_.loop = nullptr;
        task_.looping = false;
    }
    LoopEnd(const LoopEnd&) = delete;
    LoopEnd& operator=(const LoopEnd&) = delete;
    LoopEnd(LoopEnd&&) = delete;
    LoopEnd& operator=(LoopEnd&&) = delete;

private:
    Task& task_;
};

// Runs the loop of a task that nobody else runs.
void Serve(Process& process, Reader::Lock& lock, Task& task, Waiter& me) {
    const ActiveCall active(process);
    const TaskThreadScope taskThread(task.name);
    const LoopEnd end(task);
    const auto done = [&] { return task.HasMessage() || process.state != BusState::kAttached; };
    for (;;) {
        task.loop = &me;
        process.reader.Wait(lock, me, Reader::Rank::kTask, std::nullopt, done);
        task.loop = nullptr;
        if (process.state != BusState::kAttached) {
            break;
        }
        const std::unique_ptr<Incoming> message = task.Take();
        try {
            Handle(process, lock, task, *message);
        } catch (const std::bad_alloc&) {
            Log(kLogWarning, "no memory: task %s loses message %u", task.name.c_str(), message->block.msgId);
            Refuse(process, *message);
        }
    }
}

}  // namespace

uint32_t OsMsgTaskRoutineByName(const char* taskName) {
    return Guarded([&] {
        if (taskName == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        Waiter& me = Waiter::OfThisThread();
        if (!me.Valid()) {
            return OS_MSG_ERR_NO_MEMORY;
        }
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        if (process.state == BusState::kOff) {
            return OS_MSG_ERR_NOT_ATTACHED;
        }
        const std::shared_ptr<Task> task = process.FindTask(taskName);
        if (!task) {
            return OS_MSG_ERR_NO_TASK;
        }
        if (std::exchange(task->looping, true)) {
            return OS_MSG_ERR_NAME_TAKEN;
        }
        Serve(process, lock, *task, me);
        return process.state == BusState::kLost ? OS_MSG_ERR_NO_BUS : OS_MSG_OK;
    });
}

uint32_t OsMsgSynSendResp(const struct TagMsgBlock* msg, const void* data, uint32_t dataLen) {
    return Guarded([&] {
        if (msg == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        if (const uint32_t wrong = CheckPayload(data, dataLen); wrong != OS_MSG_OK) {
            return wrong;
        }
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        // A handler may still answer while the process is about to leave.
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK && process.state != BusState::kStopping) {
            return unusable;
        }
        const auto owed = process.owed.find(TokenOf(*msg));
        if (owed == process.owed.end()) {
            return OS_MSG_ERR_NO_REQUEST;
        }
        const MessagePtr reply = std::move(owed->second.reply);
        if (owed->second.deferred) {
            --process.deferredCount;
        }
        process.owed.erase(owed);
        int sent = sd_bus_message_append_array(reply.get(), SD_BUS_TYPE_BYTE, data, dataLen);
        if (sent >= 0) {
            sent = process.unsent.Send(process.bus.get(), reply.get(), dataLen);
        }
        if (sent < 0) {
            return ResultOf(sent);
        }
        process.KickIfUnsent();
        return OS_MSG_OK;
    });
}

uint32_t OsMsgSynDeferResp(const struct TagMsgBlock* msg) {
    return Guarded([&] {
        if (msg == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        const auto owed = process.owed.find(TokenOf(*msg));
        if (owed == process.owed.end()) {
            return OS_MSG_ERR_NO_REQUEST;
        }
        if (owed->second.deferred) {
            return OS_MSG_OK;
        }
        if (process.deferredCount >= kMaxDeferred) {
            return OS_MSG_ERR_NO_MEMORY;
        }
        owed->second.deferred = true;
        ++process.deferredCount;
        return OS_MSG_OK;
    });
}

uint64_t OsMsgDroppedCount(const char* taskName) {
    uint64_t dropped = 0;
    Guarded([&] {
        if (taskName == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        const std::shared_ptr<Task> task = process.FindTask(taskName);
        if (task) {
            dropped = task->dropped;
        }
        return OS_MSG_OK;
    });
    return dropped;
}
