// What this process has sent and the bus daemon has not taken yet.
#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>

namespace kivo::msg {

// sd-bus keeps what its socket does not take at once, and bounds it in messages only. Here it is bounded in bytes: what
// a daemon that does not read leaves unsent must not use up the memory of the process. Used under the process's lock.
class Unsent {
public:
    // Sends a message with so many bytes of payload; -ENOBUFS when too much waits. A negative errno on failure.
    int Send(sd_bus* bus, sd_bus_message* message, size_t payload, uint64_t* cookie = nullptr);

    // To be called after each sd_bus_process, which writes what waits, or lets sd-bus answer a message.
    void Look(sd_bus* bus);

    // Says how large the next message is that sd-bus sends by itself. It cannot be asked for that.
    void NextAnswerHas(size_t bytes) { nextAnswer_ = bytes; }

    // Whether nothing more can be sent.
    [[nodiscard]] bool IsFull() const { return !HasRoom(0); }

    // How many messages wait.
    static size_t CountIn(sd_bus* bus);

    // Before the process leaves the bus: writes what waits, with the lock released meanwhile. A daemon that does not
    // take it is given up after a while.
    static void WriteOut(sd_bus* bus, std::unique_lock<std::mutex>& lock);

    void Clear();

private:
    [[nodiscard]] bool HasRoom(size_t payload) const;
    void Note(size_t bytes);

    std::deque<size_t> sizes_;  // of the messages that wait, oldest first; at most those that sd-bus has
    size_t bytes_ = 0;          // their sum
    size_t nextAnswer_ = 0;     // 0: not said
    bool told_ = false;         // that something was refused, since nothing waited
};

}  // namespace kivo::msg
