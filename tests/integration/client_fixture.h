// This program as a requester, with a bus of its own, a server and owners as processes.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ominspect/client/session.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace support {

using namespace ominspect::client;
using std::chrono::milliseconds;
using std::chrono::seconds;

inline constexpr seconds kEnough{60};

// Cancels as soon as a condition holds.
class CancelWhen {
public:
    explicit CancelWhen(std::function<bool()> condition)
        : thread_([this, condition = std::move(condition)] {
              EXPECT_TRUE(Eventually(condition));
              source_.request_stop();
          }) {}
    std::stop_token Token() const { return source_.get_token(); }

private:
    std::stop_source source_;
    std::jthread thread_;
};

class Client : public testing::Test {
protected:
    Client() : bus_(std::make_unique<PrivateBus>()) {}
    ~Client() override { CloseSession(); }

    // The session, made when it is first asked for.
    Session& TheSession() {
        if (!session_) {
            auto session = Session::Open({.onRun =
                                              [this](const ItemResult& result) {
                                                  if (auto slow = std::exchange(slow_, nullptr)) {
                                                      slow();
                                                  }
                                                  Note(result.name + " " + result.status);
                                              },
                                          .onBusy = [this](bool busy) { Note(busy ? "busy" : "idle"); },
                                          .onBusLost = [this] { Note("bus lost"); }});
            EXPECT_TRUE(session);
            session_ = std::move(*session);
            EXPECT_FALSE(session_->Subscribe());
        }
        return *session_;
    }

    void CloseSession() { session_.reset(); }

    bool Saw(const std::string& event) {
        const std::lock_guard lock(mutex_);
        return std::find(seen_.begin(), seen_.end(), event) != seen_.end();
    }

    // The session has heard of the server's start when this returns: told later, it would end a run as forgotten.
    Child StartServer() {
        const auto starts = TheSession().ServerStarts();
        Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder_.Path().string()});
        EXPECT_TRUE(Eventually([this] { return static_cast<bool>(TheSession().State("x", seconds(1))); }));
        EXPECT_TRUE(Eventually([this, starts] { return TheSession().ServerStarts() > starts; }));
        return server;
    }

    static Child StartOwner(std::vector<std::string> items, const std::string& process = "owner1") {
        items.insert(items.begin(), {RAW_OWNER_PROGRAM, process});
        Child owner(items);
        EXPECT_TRUE(owner.EventuallyWrote("registered"));
        return owner;
    }

    TempFolder folder_;
    std::unique_ptr<PrivateBus> bus_;
    std::function<void()> slow_;  // what the first event has to wait for

private:
    void Note(const std::string& event) {
        const std::lock_guard lock(mutex_);
        seen_.push_back(event);
    }

    std::mutex mutex_;  // guards `seen_`
    std::vector<std::string> seen_;
    std::unique_ptr<Session> session_;
};

}  // namespace support
