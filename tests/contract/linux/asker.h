// A requester that speaks D-Bus itself.
#pragma once

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform_control.h"
#include "support/raw_connection.h"

namespace support {

/// A raw connection that has asked a task and waits for the reply.
class Asker : public RawConnection {
public:
    void Ask(const std::string& process, const std::string& task) {
        sd_bus_slot* slot = nullptr;
        EXPECT_GE(sd_bus_call_async(Get(), &slot, Message(process, task, 1).get(), OnReply, this, UINT64_MAX), 0);
        EXPECT_GE(sd_bus_flush(Get()), 0);
        sd_bus_slot_set_floating(slot, 1);
        sd_bus_slot_unref(slot);
    }

    /// The reply's payload, or the name of the error.
    std::string Reply() {
        EXPECT_TRUE(WaitFor([this] {
            while (sd_bus_process(Get(), nullptr) > 0) {
            }
            return reply_.has_value();
        }));
        return reply_.value_or("(none)");
    }

private:
    static int OnReply(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
        const void* data = nullptr;
        size_t size = 0;
        std::optional<std::string>& reply = static_cast<Asker*>(self)->reply_;
        if (sd_bus_message_is_method_error(message, nullptr) > 0) {
            reply = sd_bus_message_get_error(message)->name;
        } else if (sd_bus_message_read_array(message, 'y', &data, &size) >= 0) {
            reply = std::string(static_cast<const char*>(data), size);
        }
        return 1;
    }

    std::optional<std::string> reply_;
};

}  // namespace support
