// The objects of one connection: com.kivo.Inspect1, and one for each item. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "actions/operations.h"
#include "dbus/calls.h"
#include "dbus/handles.h"
#include "dbus/shown.h"
#include "model/event.h"
#include "model/picture.h"

namespace ominspect::gateway::dbus {

class Interface {
public:
    Interface(sd_bus* bus, const Picture& picture, Operations& operations);

    // Registers the objects. A negative errno on failure.
    int Begin();

    // Looks at the picture and tells what has changed.
    int Update();

    // Tells a run that has ended.
    int TellResult(const Event& event) const;

    // Tells how operations went on, and answers the calls that have begun them.
    int TellOperations();

    void End() { calls_.Refuse(); }

    // What sd-bus reads and calls.
    const ShownServer& Server() const { return server_; }
    const ShownItems& Items() const { return items_; }
    int Take(sd_bus_message* message, Order order, sd_bus_error* error);

private:
    struct Progress {
        std::string state;
        std::uint32_t done;
        friend bool operator==(const Progress&, const Progress&) = default;
    };

    void Look(ShownServer& server, ShownItems& items) const;
    int Register(int (*add)(Interface&, sd_bus_slot**));
    int TellChanges(const char* path, const char* interface, const std::vector<const char*>& names) const;
    int TellProgress(const OperationView& operation);

    sd_bus* const bus_;
    const Picture& picture_;
    Operations& operations_;
    std::uint64_t version_ = 0;  // of the picture that is shown
    ShownServer server_;
    ShownItems items_;
    std::uint64_t change_ = 0;  // of the operations, the last one seen
    std::map<std::uint64_t, OperationView> open_;
    std::map<std::uint64_t, Progress> told_;
    std::vector<Slot> slots_;
    Calls calls_;
};

}  // namespace ominspect::gateway::dbus
