// What an owner measures in one run of an item, which it tells beside the result.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "ominspect/client/session.h"
#include "ominspect/client/types.h"

namespace ominspect::ctl {

// Hears one item; must outlive its session. Take and HearRun are called on the session's thread for events.
class Measured {
public:
    explicit Measured(std::string item) : item_(std::move(item)) {}

    // Begins to listen; takes at most half a second, even if other processes hang. Where the owner cannot be found,
    // nothing is heard.
    void Listen(client::Session& session, const std::stop_token& cancel);

    // For the session's events onRun.
    void HearRun(const client::ItemResult& result);

    // What an owner tells.
    void Take(const client::PerfData& data);

    // The values of the run whose result has just come. An owner tells them before the run ends, and the server tells
    // of the end, so this waits for either, but not for longer than a second.
    std::vector<client::PerfValue> Values();

private:
    const std::string item_;
    std::mutex mutex_;  // guards the fields below
    std::condition_variable heard_;
    bool isComplete_ = false;
    std::vector<client::PerfValue> values_;
};

}  // namespace ominspect::ctl
