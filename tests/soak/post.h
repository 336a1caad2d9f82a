// The messages that the soak itself exchanges with the server, and what comes back.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "kivo/os_msg.h"

namespace soak {

// This process as a requester and an owner that speaks the wire format itself. One at a time.
class Post {
public:
    // Joins the bus and hears when the server is busy. Throws std::runtime_error.
    Post();
    ~Post();
    Post(const Post&) = delete;
    Post& operator=(const Post&) = delete;
    Post(Post&&) = delete;
    Post& operator=(Post&&) = delete;

    // Whether the server has said last that it is idle.
    [[nodiscard]] bool ServerIsIdle() const { return idle_; }

    // How many results have come here.
    [[nodiscard]] size_t Results() const { return results_; }

    // The result code of a synchronous message, and of one that nobody waits for.
    uint32_t Ask(uint32_t id, const std::string& payload);
    uint32_t Send(uint32_t id, const std::string& payload);

    // Keeps the server busy with a synchronous run of an item that this process owns, until Release.
    void Hold();
    void Release();

private:
    static uint32_t Handle(TagMsgBlock* message);

    std::atomic<bool> idle_{true};
    std::atomic<size_t> results_{0};
    std::mutex lock_;
    std::optional<TagMsgBlock> held_;  // the run that is to be answered
};

}  // namespace soak
