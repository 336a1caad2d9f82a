// A task accepts messages on the thread that reads the bus; its loop takes them out of the queue.
#include "msg/task.h"

#include <bit>
#include <new>
#include <utility>

#include "common/msg_rules.h"
#include "msg/log.h"
#include "msg/names.h"

namespace kivo::msg {

namespace {

const sd_bus_vtable kTaskTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Send", SD_BUS_ARGS("u", msgId, "u", param, "s", srcTask, "s", replyTask, "ay", payload),
                            SD_BUS_RESULT("ay", payload), Task::OnSend, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL_WITH_ARGS("Event", SD_BUS_ARGS("u", id, "ay", data), 0),
    SD_BUS_VTABLE_END,
};

}  // namespace

Task::Task(const OsTaskDescriptor& descriptor, std::string taskName, Peers& peers)
    : name(std::move(taskName)),
      handler(descriptor.handler),
      entry(descriptor.entry),
      peers_(peers),
      queue_(descriptor.queueDepth) {}

int Task::Publish(sd_bus* bus) {
    const std::string path = PathOf(name);
    if (path.empty()) {
        return -ENOMEM;
    }
    sd_bus_slot* slot = nullptr;
    const int added = sd_bus_add_object_vtable(bus, &slot, path.c_str(), kInterface, kTaskTable, this);
    if (added >= 0) {
        object_.reset(slot);
    }
    return added;
}

void Task::Retract() {
    object_.reset();
    queue_.Clear();
}

int Task::OnSend(sd_bus_message* message, void* self, sd_bus_error* error) {
    try {
        return static_cast<Task*>(self)->Accept(message, error);
    } catch (const std::bad_alloc&) {
        if (sd_bus_message_get_expect_reply(message) <= 0) {
            auto& task = *static_cast<Task*>(self);
            task.CountLoss();
            Log(kLogWarning, "no memory: task %s loses a message", task.name.c_str());
        }
        return sd_bus_error_set_const(error, SD_BUS_ERROR_NO_MEMORY, "out of memory");
    }
}

int Task::Accept(sd_bus_message* message, sd_bus_error* error) {
    uint32_t msgId = 0;
    uint32_t param = 0;
    const char* srcTask = nullptr;
    const char* replyTask = nullptr;
    const void* data = nullptr;
    size_t size = 0;
    int result = sd_bus_message_read(message, "uuss", &msgId, &param, &srcTask, &replyTask);
    if (result >= 0) {
        result = sd_bus_message_read_array(message, SD_BUS_TYPE_BYTE, &data, &size);
    }
    if (result < 0) {
        return result;
    }
    if (size > OS_MSG_MAX_PAYLOAD) {
        return sd_bus_error_set_const(error, kErrorTooLarge, "payload too large");
    }
    const auto isName = [](const char* text) { return *text == '\0' || IsValidName(text); };
    if (!isName(srcTask) || !isName(replyTask)) {
        return sd_bus_error_set_const(error, SD_BUS_ERROR_INVALID_ARGS, "bad task name");
    }
    const bool synchronous = sd_bus_message_get_expect_reply(message) > 0;
    const std::string connection = ConnectionOf(message);
    if (!queue_.HasRoom(connection, size)) {
        if (synchronous) {
            return sd_bus_error_set_const(error, kErrorQueueFull, "queue full");
        }
        CountDrop(peers_.ProcessOf(connection), msgId);
        return 1;
    }

    auto incoming = std::make_unique<Incoming>();
    TagMsgBlock& block = incoming->block;
    block.msgType = synchronous ? 1 : 0;
    block.msgId = msgId;
    block.param = param;
    WriteName(block.srcProcName, peers_.ProcessOf(connection));
    WriteName(block.srcTaskName, srcTask);
    WriteName(block.dstTaskName, name);
    WriteName(block.replyTaskName, *replyTask != '\0' ? replyTask : srcTask);
    SetPayload(*incoming, data, size);
    if (synchronous) {
        sd_bus_message* reply = nullptr;
        result = sd_bus_message_new_method_return(message, &reply);
        if (result < 0) {
            return result;
        }
        incoming->reply.reset(reply);
    }
    Push(std::move(incoming), connection, peers_.UidOf(connection));
    return 1;
}

void Task::Deliver(std::unique_ptr<Incoming> message, const std::string& connection) {
    if (!queue_.HasRoom(connection, message->block.dataLen)) {
        CountDrop(message->block.srcProcName, message->block.msgId);
        return;
    }
    WriteName(message->block.dstTaskName, name);
    Push(std::move(message), connection, peers_.UidOf(connection));
}

void Task::DeliverRestart(std::unique_ptr<Incoming> message) {
    if (queue_.Holds(message->block.msgId, message->block.srcProcName)) {
        return;
    }
    WriteName(message->block.dstTaskName, name);
    Push(std::move(message), {}, UINT32_MAX);
}

void Task::Identify(const std::string& connection, std::optional<uint32_t> uid) {
    queue_.Identify(connection, uid);
    WakeLoop();
}

void Task::Push(std::unique_ptr<Incoming> message, const std::string& connection, std::optional<uint32_t> uid) {
    queue_.Push(std::move(message), connection, uid);
    WakeLoop();
}

void Task::WakeLoop() const {
    if (HasMessage() && loop != nullptr) {
        loop->WakeOther();
    }
}

void Task::CountDrop(const std::string& source, uint32_t msgId) {
    ++dropped;
    // Every loss is counted, but only powers of two are logged: a flood of messages must not become one of lines.
    if (!std::has_single_bit(dropped)) {
        return;
    }
    Log(kLogWarning, "task %s: queue full, message %u from %s dropped (%llu so far)", name.c_str(), msgId,
        source.c_str(), static_cast<unsigned long long>(dropped));
}

}  // namespace kivo::msg
