// Objects beside those of the tasks.
#include "msg/object.h"

#include <cerrno>

#include "msg/process.h"

namespace kivo::msg {

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
        const int sent = sd_bus_emit_properties_changed(process.bus.get(), path, interface, property, nullptr);
        if (sent < 0) {
            return ResultOf(sent);
        }
        process.KickIfUnsent();
        return OS_MSG_OK;
    });
}

std::string ConnectionOf(const std::string& procName) {
    Process& process = TheProcess();
    const Reader::Lock lock(process.lock);
    return std::string(process.peers.OwnerOf(procName));
}

}  // namespace kivo::msg
