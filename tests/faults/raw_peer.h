// A process on the bus that says to the server whatever it likes.
#pragma once

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>

#include "support/eventually.h"
#include "support/raw_connection.h"

namespace support {

class RawPeer : public RawConnection {
public:
    explicit RawPeer(const std::string& process) { Take("com.kivo.proc." + process); }

    [[nodiscard]] RawMessage Call(uint32_t id, const std::string& payload, uint32_t param = 0) const {
        sd_bus_message* call = nullptr;
        EXPECT_GE(sd_bus_message_new_method_call(Get(), &call, "com.kivo.proc.ominspect",
                                                 "/com/kivo/task/iom_5fsrv_5ftask", "com.kivo.Msg", "Send"),
                  0);
        EXPECT_GE(sd_bus_message_append(call, "uuss", id, param, "raw", "raw"), 0);
        EXPECT_GE(sd_bus_message_append_array(call, 'y', payload.data(), payload.size()), 0);
        return RawMessage(call);
    }

    /// Sends a message that wants no reply.
    void Say(uint32_t id, const std::string& payload, uint32_t param = 0) const {
        const RawMessage call = Call(id, payload, param);
        EXPECT_GE(sd_bus_message_set_expect_reply(call.get(), 0), 0);
        EXPECT_GE(sd_bus_send(Get(), call.get(), nullptr), 0);
        EXPECT_GE(sd_bus_flush(Get()), 0);
    }

    /// Sends a message that wants a reply, and does not look for it.
    void AskOnly(uint32_t id, const std::string& payload) const {
        uint64_t cookie = 0;  // a call without a cookie would ask for no reply
        EXPECT_GE(sd_bus_send(Get(), Call(id, payload).get(), &cookie), 0);
        EXPECT_GE(sd_bus_flush(Get()), 0);
    }

    /// Waits until the server has handled all that was said: it serves the messages of one sender in order, and refuses
    /// this one while it has too many.
    void AwaitServer() const {
        EXPECT_TRUE(Eventually([this] {
            sd_bus_message* reply = nullptr;
            const int asked = sd_bus_call(Get(), Call(7, "").get(), 60'000'000, nullptr, &reply);
            const RawMessage answer(reply);
            return asked >= 0;
        }));
    }
};

}  // namespace support
