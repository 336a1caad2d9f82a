// The process that stands at the other end of the bus in the tests of the message layer.
//
// It runs one task for each kind of behaviour, under the process name that it is given:
//
//   echo     answers with the payload it got
//   mirror   answers with the envelope it got
//   silent   never answers, but passes the message on to the task that its replyTaskName names at the sender
//   collect  keeps message ids, in a queue of 4; answers id kReport with all of them so far, in order, and on id
//            kVisitGate asks task "gate" of the sender and goes on once that has answered
//   relay    carries out an Order: sends, asks or broadcasts, and answers with a PeerOutcome
//   die      ends as after SIGKILL, without an answer
//   leave    asks the task runner to end, without an answer
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "kivo/os_msg.h"

namespace support {

constexpr uint32_t kReport = 1000;
constexpr uint32_t kVisitGate = 1001;

/// Payload of a message to task "relay"; the payload to be sent follows.
struct Order {
    enum class Kind : uint32_t { kAsk, kPost, kBroadcast };

    Kind kind{};
    uint32_t count = 1;      // times; the message or event id grows by one each time
    uint32_t timeoutMs{};    // kAsk
    TagMsgBlock envelope{};  // kAsk, kPost: as it is sent; kBroadcast: its msgId is the event id
};
static_assert(std::is_trivially_copyable_v<Order>);

/// Head of the answer of task "relay"; the payload of the last reply follows.
struct PeerOutcome {
    uint32_t result{};  // of the last call
    uint32_t good{};    // calls that succeeded
};
static_assert(std::is_trivially_copyable_v<PeerOutcome>);

/// Runs the peer until it is told to leave; the result is OsTaskRun's.
uint32_t RunPeer(const std::string& procName);

/// Ends the calling process as SIGKILL does. Where processes are simulated it returns, and nothing that the process
/// does has an effect any more.
void EndAbruptly(const std::string& procName);

}  // namespace support
