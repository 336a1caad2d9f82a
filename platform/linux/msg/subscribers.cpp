// Subscribers are connections; the bus names the sender of each call.
#include "msg/subscribers.h"

#include <new>

#include "msg/names.h"

namespace kivo::msg {

namespace {

// Those who subscribed to a process before it started, or outlive its restart, subscribe again when the bus tells them
// that it is there. They miss nothing on the way.
constexpr std::chrono::seconds kSettling{10};

}  // namespace

const sd_bus_vtable Subscribers::kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Subscribe", "", "", OnSubscribe, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Unsubscribe", "", "", OnUnsubscribe, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int Subscribers::Publish(sd_bus* bus) {
    sd_bus_slot* slot = nullptr;
    const int added = sd_bus_add_object_vtable(bus, &slot, kProcessPath, kPublisherInterface, kTable, this);
    object_.reset(slot);
    settled_ = std::chrono::steady_clock::now() + kSettling;
    return added;
}

void Subscribers::Clear() {
    object_.reset();
    connections_.clear();
    everybody_ = false;
}

bool Subscribers::Wanted() const {
    return everybody_ || !connections_.empty() || std::chrono::steady_clock::now() < settled_;
}

int Subscribers::OnSubscribe(sd_bus_message* message, void* self, sd_bus_error* error) {
    const char* sender = sd_bus_message_get_sender(message);
    if (sender == nullptr) {
        return sd_bus_error_set_const(error, SD_BUS_ERROR_INVALID_ARGS, "the sender has no name");
    }
    try {
        static_cast<Subscribers*>(self)->connections_.emplace(sender);
    } catch (const std::bad_alloc&) {
        // One that wants no answer does not ask again.
        if (sd_bus_message_get_expect_reply(message) <= 0) {
            static_cast<Subscribers*>(self)->everybody_ = true;
        }
        return sd_bus_error_set_const(error, SD_BUS_ERROR_NO_MEMORY, "out of memory");
    }
    return sd_bus_reply_method_return(message, nullptr);
}

int Subscribers::OnUnsubscribe(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    const char* sender = sd_bus_message_get_sender(message);
    if (sender != nullptr) {
        static_cast<Subscribers*>(self)->Forget(sender);
    }
    return sd_bus_reply_method_return(message, nullptr);
}

}  // namespace kivo::msg
