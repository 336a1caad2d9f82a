// Owning handles for sd-bus objects; all of them are used on one thread.
#pragma once

#include <cerrno>
#include <exception>
#include <memory>

#include <systemd/sd-bus.h>

#include "common/bus_connection.h"
#include "common/freed.h"

namespace ominspect::gateway::dbus {

using Message = BusMessage;
using Slot = std::unique_ptr<sd_bus_slot, Freed<sd_bus_slot_unref>>;

constexpr const char* kName = "com.kivo.Inspect1";  // on the bus, and of the interface
constexpr const char* kPath = "/com/kivo/Inspect1";
constexpr const char* kItemInterface = "com.kivo.Inspect1.Item";
constexpr const char* kItemPrefix = "/com/kivo/Inspect1/item";

// sd-bus calls functions of C: nothing is thrown through them.
template <typename Function>
int Guarded(Function function) {
    try {
        return function();
    } catch (const std::exception&) {
        return -ENOMEM;
    }
}

}  // namespace ominspect::gateway::dbus
