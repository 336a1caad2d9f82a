// The property's value, and the function by which sd-bus reads it.
#include "engine_client/items_property.h"

#include <systemd/sd-bus.h>

#include <utility>

#include "common/msg_rules.h"
#include "msg/object.h"

namespace kivo::engine {

namespace {

// Guarded by the message layer's lock. Never destroyed: a task may still be running when the process exits.
std::map<std::string, ShownItem>& Published() {
    static auto* items = new std::map<std::string, ShownItem>;
    return *items;
}

// What an item takes in the answer beside its two texts, at most.
constexpr size_t kEach = 32;

int Read(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
         sd_bus_message* reply, void* /*userdata*/, sd_bus_error* /*error*/) {
    int result = sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, "(sus)");
    size_t size = 0;
    for (const auto& [name, item] : Published()) {
        size += name.size() + item.server.size() + kEach;
        if (result >= 0) {
            result = sd_bus_message_append(reply, "(sus)", name.c_str(), item.timeout, item.server.c_str());
        }
    }
    msg::NextAnswerHas(size);
    return result >= 0 ? sd_bus_message_close_container(reply) : result;
}

// Only that it has changed is told: a signal reaches users, too, who may not read the property.
const sd_bus_vtable kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY(kItemsProperty, kItemsType, Read, 0, SD_BUS_VTABLE_PROPERTY_EMITS_INVALIDATION),
    SD_BUS_VTABLE_END,
};

}  // namespace

uint32_t PublishItems() {
    return msg::PublishObject(kItemsPath, kItemsInterface, kTable);
}

void SetItems(std::map<std::string, ShownItem> items) {
    std::erase_if(items, [](const auto& item) { return !IsUtf8(item.first); });
    (void)msg::ChangeProperty(kItemsPath, kItemsInterface, kItemsProperty,
                              [&items] { Published() = std::move(items); });
}

}  // namespace kivo::engine
