// The messages that wait for a task.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "kivo/os_msg.h"
#include "msg/handles.h"

namespace kivo::msg {

// A message on its way to a handler.
struct Incoming {
    TagMsgBlock block{};
    std::unique_ptr<unsigned char[]> payload;
    MessagePtr reply;  // set when one is owed: addressed; its payload is still missing
};

// A copy of `size` bytes as a message's payload.
void SetPayload(Incoming& message, const void* data, size_t size);

// Bounded in messages and in bytes. What is left of either when seven eighths are taken is for senders that have
// nothing in the queue, so nobody takes all of it. The messages of one sender stay in order. Messages leave in the
// order of their arrival, with one exception: while the oldest is of a sender that has many in the queue, every other
// message that leaves is one of a sender that has few. So a flood holds up nobody else.
//
// Without the user id of its sender a message cannot leave, nor can any that came after it: one that was sent later, by
// somebody who knew that the first had been sent, must not be handled earlier. The daemon's answer ends that wait; no
// sender can draw it out.
class Queue {
public:
    explicit Queue(size_t depth);

    // Whether another message of this connection fits.
    [[nodiscard]] bool HasRoom(const std::string& connection, size_t size) const;

    // Takes a message in, whether there is room or not. Without a user id it waits for Identify.
    void Push(std::unique_ptr<Incoming> message, const std::string& connection, std::optional<uint32_t> uid);

    // Takes in a connection's user id. Without one the connection has ended: those of its messages that want a reply
    // are dropped, and the others go without.
    void Identify(const std::string& connection, std::optional<uint32_t> uid);

    // Whether Take has something to give.
    [[nodiscard]] bool HasMessage() const;

    // The next message. There must be one.
    std::unique_ptr<Incoming> Take();

    // Whether an asynchronous message with this id and source process waits.
    [[nodiscard]] bool Holds(uint32_t msgId, std::string_view procName) const;

    void Clear();

private:
    struct Sender {
        size_t waiting = 0;
        bool known = false;
        uint32_t uid = UINT32_MAX;
    };
    using Senders = std::map<std::string, Sender>;
    struct Entry {
        std::unique_ptr<Incoming> message;
        Senders::iterator sender;
    };
    using Entries = std::deque<Entry>;

    Entries::iterator Next();
    std::unique_ptr<Incoming> Remove(const Entries::iterator& entry);

    size_t depth_;
    Entries entries_;
    Senders senders_;          // those that have messages here, by connection
    size_t bytes_ = 0;         // of all payloads
    bool othersTurn_ = false;  // the next message is of a sender that has few
};

}  // namespace kivo::msg
