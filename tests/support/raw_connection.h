// A connection to the tests' bus that speaks D-Bus itself, so that it can do what the message layer never does.
#pragma once

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace support {

struct RawDeleter {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using RawMessage = std::unique_ptr<sd_bus_message, RawDeleter>;

/// What the message layer sends to a task, as it stands on the bus.
struct SentMessage {
    uint32_t id{};
    uint32_t param{};
    std::string sourceTask;
    std::string replyTask;
    std::string payload;
};

/// Nothing when it is another message, or none.
inline std::optional<SentMessage> ReadSent(sd_bus_message* message) {
    if (message == nullptr || sd_bus_message_is_method_call(message, "com.kivo.Msg", "Send") <= 0) {
        return std::nullopt;
    }
    SentMessage sent;
    const char* source = nullptr;
    const char* reply = nullptr;
    const void* data = nullptr;
    size_t size = 0;
    EXPECT_GE(sd_bus_message_read(message, "uuss", &sent.id, &sent.param, &source, &reply), 0);
    EXPECT_GE(sd_bus_message_read_array(message, 'y', &data, &size), 0);
    sent.sourceTask = source;
    sent.replyTask = reply;
    sent.payload.assign(static_cast<const char*>(data), size);
    return sent;
}

/// Joins the bus at KIVO_BUS_ADDRESS. For one thread.
class RawConnection {
public:
    RawConnection() {
        sd_bus* bus = nullptr;
        EXPECT_GE(sd_bus_new(&bus), 0);
        bus_.reset(bus);
        EXPECT_GE(sd_bus_set_address(bus, std::getenv("KIVO_BUS_ADDRESS")), 0);
        EXPECT_GE(sd_bus_set_bus_client(bus, 1), 0);
        EXPECT_GE(sd_bus_start(bus), 0);
    }

    [[nodiscard]] sd_bus* Get() const { return bus_.get(); }

    /// Its unique name.
    [[nodiscard]] std::string Name() const {
        const char* name = nullptr;
        EXPECT_GE(sd_bus_get_unique_name(Get(), &name), 0);
        return name;
    }

    /// The unique name of the connection that owns a well-known one.
    [[nodiscard]] std::string OwnerOf(const std::string& name) const {
        sd_bus_message* reply = nullptr;
        const char* owner = nullptr;
        EXPECT_GE(sd_bus_call_method(Get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                     "GetNameOwner", nullptr, &reply, "s", name.c_str()),
                  0);
        const RawMessage answer(reply);
        EXPECT_GE(sd_bus_message_read(reply, "s", &owner), 0);
        return owner;
    }

    /// Whether anybody owns the name.
    [[nodiscard]] bool IsThere(const std::string& name) const {
        sd_bus_message* reply = nullptr;
        int isThere = 0;
        EXPECT_GE(sd_bus_call_method(Get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                     "NameHasOwner", nullptr, &reply, "s", name.c_str()),
                  0);
        const RawMessage answer(reply);
        EXPECT_GE(sd_bus_message_read(reply, "b", &isThere), 0);
        return isThere != 0;
    }

    void Take(const std::string& name) const { EXPECT_GE(sd_bus_request_name(Get(), name.c_str(), 0), 0); }
    void GiveUp(const std::string& name) const { EXPECT_GE(sd_bus_release_name(Get(), name.c_str()), 0); }

    /// A message to a task, ready to be sent; it wants a reply.
    [[nodiscard]] RawMessage Message(const std::string& process, const std::string& task, uint32_t id) const {
        sd_bus_message* call = nullptr;
        const std::string path = "/com/kivo/task/" + task;
        EXPECT_GE(sd_bus_message_new_method_call(Get(), &call, ("com.kivo.proc." + process).c_str(), path.c_str(),
                                                 "com.kivo.Msg", "Send"),
                  0);
        EXPECT_GE(sd_bus_message_append(call, "uuss", id, 0, "", ""), 0);
        EXPECT_GE(sd_bus_message_append_array(call, 'y', "x", 1), 0);
        return RawMessage(call);
    }

    /// Sends a message that wants no reply.
    void Post(const std::string& process, const std::string& task, uint32_t id) const {
        const RawMessage call = Message(process, task, id);
        EXPECT_GE(sd_bus_message_set_expect_reply(call.get(), 0), 0);
        EXPECT_GE(sd_bus_send(Get(), call.get(), nullptr), 0);
        EXPECT_GE(sd_bus_flush(Get()), 0);
    }

    /// A reply, still empty, to the call with this cookie, whoever made it and whomever it was for; an error with a
    /// name.
    [[nodiscard]] RawMessage ForgedReply(const std::string& victim, uint64_t cookie,
                                         const char* error = nullptr) const {
        sd_bus_message* call = nullptr;
        sd_bus_message* reply = nullptr;
        EXPECT_GE(sd_bus_message_new_method_call(Get(), &call, Name().c_str(), "/", "com.kivo.Msg", "Send"), 0);
        const RawMessage question(call);
        EXPECT_GE(sd_bus_message_seal(call, cookie, 0), 0);
        if (error == nullptr) {
            EXPECT_GE(sd_bus_message_new_method_return(call, &reply), 0);
        } else {
            EXPECT_GE(sd_bus_message_new_method_errorf(call, &reply, error, "forged"), 0);
        }
        EXPECT_GE(sd_bus_message_set_destination(reply, victim.c_str()), 0);
        return RawMessage(reply);
    }

    /// Sends such a reply with a payload.
    void Forge(const std::string& victim, uint64_t cookie, const std::string& payload) const {
        const RawMessage reply = ForgedReply(victim, cookie);
        ASSERT_GE(sd_bus_message_append_array(reply.get(), 'y', payload.data(), payload.size()), 0);
        ASSERT_GE(sd_bus_send(Get(), reply.get(), nullptr), 0);
        ASSERT_GE(sd_bus_flush(Get()), 0);
    }

private:
    std::unique_ptr<sd_bus, RawDeleter> bus_;
};

}  // namespace support
