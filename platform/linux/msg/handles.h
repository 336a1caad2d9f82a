// Owning handles for sd-bus objects. All of them share the connection's count of references, which is not
// atomic: they are made, used and dropped under the process's lock only.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>

namespace kivo::msg {

struct HandleDeleter {
    // Without writing what waits: a daemon that hangs would be waited for without end.
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

using BusPtr = std::unique_ptr<sd_bus, HandleDeleter>;
using MessagePtr = std::unique_ptr<sd_bus_message, HandleDeleter>;
using SlotPtr = std::unique_ptr<sd_bus_slot, HandleDeleter>;

// An error that sd-bus fills.
class BusError {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&error_); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    BusError(BusError&&) = delete;
    BusError& operator=(BusError&&) = delete;

    sd_bus_error* Out() { return &error_; }

private:
    sd_bus_error error_{};
};

}  // namespace kivo::msg
