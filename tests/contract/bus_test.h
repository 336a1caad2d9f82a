// What the tests of the message layer share: a process under test with tasks, its messages, and what it received.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "kivo/os_msg.h"
#include "peer_process.h"
#include "peers.h"
#include "platform_control.h"

namespace support {

constexpr uint32_t kLong = 600000;  // a time limit that is not reached, in ms
constexpr uint32_t kShort = 200;    // one that is

/// Has a bus; the process under test is not on it.
class DetachedTest : public ContractTest {
protected:
    void SetUp() override;
    void TearDown() override;  // leaves the bus
};

/// The process under test is on the bus as "tester".
class BusTest : public DetachedTest {
protected:
    void SetUp() override;
};

using Handler = std::function<uint32_t(TagMsgBlock& message)>;

/// A descriptor whose messages go to `handler`, until the test ends.
OsTaskDescriptor Describe(std::string_view name, Handler handler, uint32_t queueDepth = 64,
                          OsTaskEntry entry = nullptr);

/// Creates such a task of the process under test.
void AddTask(std::string_view name, Handler handler, uint32_t queueDepth = 64);

/// An outgoing envelope; the payload is not copied. Names may have up to 16 bytes: those have no NUL.
TagMsgBlock Envelope(std::string_view proc, std::string_view task, uint32_t id = 1, std::string_view payload = {});

/// The result of a synchronous send, its reply copied and freed.
struct Reply {
    uint32_t result{};
    std::string data;
};
Reply Ask(const TagMsgBlock& message, uint32_t timeoutMs = kLong);
Reply Ask(std::string_view proc, std::string_view task, std::string_view payload = {});

/// Sends without waiting, and expects that to succeed.
void Post(std::string_view proc, std::string_view task, uint32_t id = 1, std::string_view payload = {});

/// Lets a peer's task "relay" do it.
struct Relayed {
    PeerOutcome outcome;
    std::string data;
};
Relayed Relay(std::string_view peer, Order::Kind kind, const TagMsgBlock& message, uint32_t count = 1,
              uint32_t timeoutMs = kLong);

/// Answers the message, and expects that to succeed.
void Answer(const TagMsgBlock& message, std::string_view payload = {});

/// A message as it was received.
struct Received {
    TagMsgBlock envelope{};  // its data pointer is null
    std::string payload;
};

/// Keeps messages. Any thread. Copies share what they keep, so that a handler may hold one of its own.
class Inbox {
public:
    /// A handler that keeps each message and answers none.
    Handler Keep() const;

    void Put(const TagMsgBlock& message) const;
    size_t Count() const;
    std::vector<Received> All() const;
    std::vector<uint32_t> Ids() const;

    /// Waits until there are `count` messages; false when they do not come.
    bool Await(size_t count) const;

private:
    struct State {
        std::mutex mutex;
        std::vector<Received> all;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Holds a handler up until the test lets it go on. Copies are the same gate.
class Gate {
public:
    /// Waits until it is open. For the handler.
    void Pass() const;

    /// Waits until a handler stands before it.
    bool Reached() const;

    void Open() const { state_->open = true; }

private:
    struct State {
        std::atomic<bool> reached{false};
        std::atomic<bool> open{false};
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Waits until the peer answers.
void AwaitPeer(const std::string& procName);

/// Waits until no process of that name is on the bus.
void AwaitAbsence(const std::string& procName);

}  // namespace support
