// The method calls that wait for the end of an operation. One thread.
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>

#include "actions/operations.h"
#include "dbus/handles.h"
#include "dbus/shown.h"

namespace ominspect::gateway::dbus {

class Calls {
public:
    Calls(sd_bus* bus, Operations& operations) : bus_(bus), operations_(operations) {}
    ~Calls();
    Calls(const Calls&) = delete;
    Calls& operator=(const Calls&) = delete;

    // Takes a call, to be answered when what it orders has ended; a call that expects no reply only begins it. What a
    // caller has begun is stopped when it leaves the bus. A negative errno, or `error`, for a call that is not taken.
    int Take(sd_bus_message* message, Order order, sd_bus_error* error);

    // Answers the call that has begun this operation, if any.
    void Answer(const OperationView& operation, const ShownItems& items);

    // Answers all that wait: the gateway ends.
    void Refuse();

private:
    struct Call {
        Calls* calls;
        Message message;
        Order order;
        std::optional<std::uint64_t> operation;  // none while it is asked who calls
        Slot leaving;                            // the caller's end
        Slot asking;                             // who calls
    };

    static int OnUser(sd_bus_message* reply, void* context, sd_bus_error* error);
    static int OnLeft(sd_bus_message* signal, void* context, sd_bus_error* error);
    void Begin(Call& call, std::optional<std::uint32_t> user);
    void Forget(const Call& call);

    sd_bus* const bus_;
    Operations& operations_;
    std::list<Call> calls_;
};

}  // namespace ominspect::gateway::dbus
