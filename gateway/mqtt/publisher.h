// Tells one terminal's broker everything: the state as retained messages, and every event of the history in order, at
// least once. Without a thread and without a clock of its own, so that one thread can carry any number of terminals.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "model/parts.h"
#include "model/picture.h"
#include "mqtt/backlog.h"
#include "mqtt/line.h"
#include "mqtt/position.h"
#include "mqtt/rate.h"
#include "mqtt/requests.h"
#include "mqtt/topics.h"

namespace ominspect::gateway::mqtt {

class Publisher : public LineUser {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string terminal;
        unsigned rate = 10;  // of messages in each second
        std::string position;
        std::vector<MqttRole> roles;
    };
    // What it says of itself.
    using Say = std::function<void(PartState state, const std::string& text)>;

    // `told`: the highest number that the feed has given by now.
    Publisher(Settings settings, const Picture& picture, Backlog& backlog, Line& line, Carrier* carrier, Say say,
              std::uint64_t told, Clock::time_point now);

    // Takes an event that has just happened. Any thread; never waits.
    void Tell(const Event& event);

    // Does what is due now, and says when it must be called again even if nothing happens.
    Clock::time_point Go(Clock::time_point now);

    // Begins the farewell; then Go is to be called until it IsOver.
    void BeginEnd(Clock::time_point now);
    bool IsOver() const { return isOver_; }

    bool IsOnline() const { return phase_ == Phase::kOnline; }
    std::uint64_t Position() const { return position_; }
    std::uint64_t Sent() const { return sent_; }

    // ---- of the line ----
    void Opened() override;
    void Acked(int number, const std::string& refusal) override;
    void Came(Incoming message) override;
    void Lost(const std::string& why) override;

    // How many messages may be on their way.
    static constexpr std::size_t kMostOpen = 20;

private:
    enum class Phase { kAway, kOpening, kOnline };
    struct Open {
        int number;
        std::uint64_t seq;  // 0: no event
        bool isTaken;
    };

    void TakeTold();
    void LookAtItems();
    void Begin();
    void Greet();
    void SendWhatMay();
    bool HasWork() const;
    // Each of these sends one message at most. False: there is none, or nothing can be sent.
    bool SendNext();
    bool SendItem();
    bool SendEvent();
    bool Send(const Outgoing& message, std::uint64_t seq = 0);
    void Advance();
    Clock::time_point Wake() const;
    void Save();
    void Away(const std::string& why);

    const Settings settings_;
    const Topics topics_;
    const Picture& picture_;
    Backlog& backlog_;
    Line& line_;
    const Say say_;
    const PositionFile file_;
    Requests requests_;
    Rate rate_;
    std::minstd_rand random_;

    Phase phase_ = Phase::kAway;
    bool isEnding_ = false;
    bool isOver_ = false;
    Clock::time_point now_;
    Clock::time_point due_;     // away: of the next try; opening: of giving it up
    Clock::time_point online_;  // since when
    Clock::time_point heard_;   // of the last acknowledgement, or of the first message after it
    Clock::time_point saved_;
    Clock::time_point endBy_;
    TimePoint since_;
    unsigned failures_ = 0;
    std::string refusal_;  // of a message, by the broker
    bool isSaveFailing_ = false;

    std::uint64_t position_;      // everything up to here is taken
    std::uint64_t keptPosition_;  // and this much is in the file
    std::uint64_t lastSent_;
    std::deque<history::Row> rows_;  // that were read, to be sent
    bool isMoreToRead_ = true;
    std::deque<Open> open_;  // sent, in order
    std::vector<std::string> dueSubscriptions_;
    bool isStatusDue_ = false;
    std::set<std::string> dueItems_;
    std::map<std::string, std::size_t> shown_;  // the hash of what was sent of each item
    unsigned itemsInARow_ = 0;
    std::uint64_t sent_ = 0;

    std::mutex mutex_;  // guards everything below, which the feed fills
    bool isEventTold_ = false;
    bool isServerTold_ = false;
    bool areItemsTold_ = false;
    std::set<std::string> toldItems_;
    std::deque<Event> toldDocuments_;
};

}  // namespace ominspect::gateway::mqtt
