// Objects beside those of the tasks, and other services to the platform's libraries.
#include "msg/object.h"

#include <cerrno>
#include <chrono>

#include "msg/process.h"

namespace kivo::msg {

namespace {

constexpr std::chrono::seconds kPassedOnLimit{5};

}  // namespace

uint32_t PublishObject(const char* path, const char* interface, const sd_bus_vtable* table) {
    return Guarded([&] {
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK) {
            return unusable;
        }
        // Without a slot the object lives as long as the connection.
        const int added = sd_bus_add_object_vtable(process.bus.get(), nullptr, path, interface, table, nullptr);
        return added >= 0 || added == -EEXIST ? OS_MSG_OK : ResultOf(added);
    });
}

uint32_t ChangeProperty(const char* path, const char* interface, const char* property,
                        const std::function<void()>& change) {
    return Guarded([&] {
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        change();
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK) {
            return unusable;
        }
        if (process.unsent.IsFull()) {
            return OS_MSG_ERR_NO_MEMORY;
        }
        const int sent = sd_bus_emit_properties_changed(process.bus.get(), path, interface, property, nullptr);
        if (sent < 0) {
            return ResultOf(sent);
        }
        process.unsent.Look(process.bus.get());
        process.KickIfUnsent();
        return OS_MSG_OK;
    });
}

void NextAnswerHas(size_t bytes) {
    TheProcess().unsent.NextAnswerHas(bytes);
}

std::string ConnectionOf(const std::string& procName) {
    Process& process = TheProcess();
    const Reader::Lock lock(process.lock);
    return std::string(process.peers.OwnerOf(procName));
}

// The daemon handles the messages of one connection in order; those of different ones in any order.
void AwaitPassedOn() {
    (void)Guarded([] {
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK) {
            return unusable;
        }
        AwaitedReply answer(process, "");
        const uint32_t sent = answer.Send(MakeQuestion(process.bus.get(), "GetId", nullptr));
        return sent == OS_MSG_OK ? answer.Wait(lock, Reader::Clock::now() + kPassedOnLimit) : sent;
    });
}

}  // namespace kivo::msg
