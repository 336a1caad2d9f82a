// The version of a process, as a property of the object that stands for it.
#include <string>

#include "common/msg_rules.h"
#include "msg/names.h"
#include "msg/process.h"

namespace kivo::msg {

namespace {

int Read(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
         sd_bus_message* reply, void* process, sd_bus_error* /*error*/) {
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, static_cast<Process*>(process)->version.c_str());
}

const sd_bus_vtable kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Version", "s", Read, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

}  // namespace

int PublishVersion(Process& process) {
    if (process.version.empty()) {
        return 0;
    }
    // Without a slot the object lives as long as the connection.
    return sd_bus_add_object_vtable(process.bus.get(), nullptr, kProcessPath, kVersionInterface, kTable, &process);
}

}  // namespace kivo::msg

using namespace kivo::msg;

void OsProcSetVersion(const char* version) {
    (void)Guarded([version] {
        std::string text = version != nullptr ? version : "";
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        process.version = kivo::IsUtf8(text) ? std::move(text) : std::string();
        return OS_MSG_OK;
    });
}
