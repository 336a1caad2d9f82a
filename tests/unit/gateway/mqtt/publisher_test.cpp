// The publisher over a line of the test's own, in a time of the test's own.
#include "mqtt/publisher.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../history/history_test.h"
#include "common/json.h"

using namespace ominspect;
using namespace ominspect::gateway;
using namespace ominspect::gateway::mqtt;
using namespace std::chrono_literals;

namespace {

class FakeLine : public Line {
public:
    std::optional<Error> Open(LineUser& user, const Outgoing& message) override {
        ++opened;
        user_ = &user;
        will = message;
        return fails ? std::optional(OtherError("no broker")) : std::nullopt;
    }
    Result<int> Publish(const Outgoing& message) override {
        if (!forbidden.empty() && message.payload.find(forbidden) != std::string::npos) {
            return WrongUse("too big");
        }
        if (breaks) {
            return OtherError("the line broke");
        }
        sent.push_back(message);
        return static_cast<int>(++last);
    }
    std::optional<Error> Subscribe(const std::string& topic) override {
        subscribed.push_back(topic);
        return std::nullopt;
    }
    void Close(bool politely) override {
        user_ = nullptr;
        acked = last;
        endings += politely ? "polite " : "";
    }

    void AckAll() {
        for (; acked < last; ++acked) {
            user_->Acked(static_cast<int>(acked + 1), "");
        }
    }

    LineUser* user_ = nullptr;
    Outgoing will;
    int opened = 0;
    bool fails = false;
    bool breaks = false;
    std::string forbidden;
    std::vector<Outgoing> sent;
    std::vector<std::string> subscribed;
    std::string endings;
    std::size_t last = 0;
    std::size_t acked = 0;
};

class FakeCarrier : public Carrier {
public:
    Result<std::uint64_t> Run(const std::string&, const std::string&, const std::string&) override { return 7U; }
    Result<std::string> Collect(const std::string&) override { return OtherError(""); }
};

class MqttPublisher : public testing::Test {
protected:
    void Make(std::uint64_t told = 1000, unsigned rate = 1000, const std::string& history = "", bool hasRoles = false) {
        publisher_.reset();
        backlog_ = std::make_unique<Backlog>(history);
        Publisher::Settings settings{"room12", rate, folder_ / "position", {}};
        if (hasRoles) {
            settings.roles = {{"desk", {"clock"}, false}};
        }
        publisher_ = std::make_unique<Publisher>(
            settings, picture_, *backlog_, line_, &carrier_,
            [this](PartState state, const std::string& text) { said_.push_back(WordOf(state) + (": " + text)); }, told,
            now_);
    }

    // Rounds of a tenth of a second each, in which the broker takes everything.
    void Rounds(int count, bool acks = true) {
        for (int i = 0; i < count; ++i) {
            (void)publisher_->Go(now_);
            if (acks) {
                line_.AckAll();
            }
            now_ += 100ms;
        }
    }

    void Connect() {
        (void)publisher_->Go(now_);
        line_.user_->Opened();
    }

    void Tell(std::uint64_t seq, const std::string& item, const std::string& status = "ok") {
        const Event event = support::ResultOf(seq, item, status);
        picture_.Apply(event);
        backlog_->Tell(event);
        publisher_->Tell(event);
    }

    // What was sent since the last call: of events their numbers, of other topics their last level.
    std::string Sent() {
        std::string all;
        for (const Outgoing& message : line_.sent) {
            if (message.topic == "ominspect/room12/events") {
                const auto json = json::Value::Parse(message.payload);
                const auto number = json->Read()["seq"].Number();
                const auto missing = json->Read()["missing"];
                EXPECT_FALSE(message.isRetained);
                all += number ? std::to_string(static_cast<int>(*number))
                              : std::to_string(static_cast<int>(*missing["first"].Number())) + "-" +
                                    std::to_string(static_cast<int>(*missing["last"].Number()));
            } else {
                all += message.topic.substr(message.topic.rfind('/') + 1);
            }
            all += " ";
        }
        line_.sent.clear();
        return all;
    }

    std::uint64_t Kept() const { return PositionFile(folder_ / "position", "room12").Load(); }

    support::TempFolder folder_;
    Picture picture_;
    FakeLine line_;
    FakeCarrier carrier_;
    std::vector<std::string> said_;
    std::unique_ptr<Backlog> backlog_;
    std::unique_ptr<Publisher> publisher_;
    Publisher::Clock::time_point now_{100h};
};

TEST_F(MqttPublisher, GreetsWithTheStateAndTellsWhatHappens) {
    Make();
    Tell(1001, "a/b");
    Connect();
    Rounds(5);
    ASSERT_EQ(line_.sent.size(), 3U);
    EXPECT_EQ(line_.sent[0].topic, "ominspect/room12/status");
    EXPECT_TRUE(line_.sent[0].isRetained);
    EXPECT_EQ(*json::Value::Parse(line_.sent[0].payload)->Read()["state"].Text(), "online");
    EXPECT_EQ(line_.sent[1].topic, "ominspect/room12/items/a%2Fb");
    EXPECT_TRUE(line_.sent[1].isRetained);
    EXPECT_EQ(line_.sent[1].payload,
              R"({"item":"a/b","isConfigured":false,"hasOwner":false,"lastResult":{"seq":1001,)"
              R"("time":"1970-01-12T14:03:21.000Z","kind":"result","item":"a/b","status":"ok","text":""}})");
    EXPECT_EQ(line_.sent[2].topic, "ominspect/room12/events");
    EXPECT_EQ(line_.sent[2].payload,
              R"({"seq":1001,"time":"1970-01-12T14:03:21.000Z","kind":"result","item":"a/b","status":"ok","text":""})");
    EXPECT_EQ(line_.will.topic, "ominspect/room12/status");
    EXPECT_TRUE(line_.will.isRetained);
    EXPECT_EQ(*json::Value::Parse(line_.will.payload)->Read()["state"].Text(), "lost");
    EXPECT_EQ(said_, (std::vector<std::string>{"degraded: not connected yet", "ok: "}));
    (void)Sent();
    Tell(1002, "clock");
    Rounds(1);
    EXPECT_EQ(Sent(), "clock 1002 ");
}

TEST_F(MqttPublisher, OrderIsKeptAndThePositionFollowsWhatIsTaken) {
    Make();
    for (std::uint64_t seq = 1001; seq <= 1030; ++seq) {
        Tell(seq, "clock");
    }
    Connect();
    Rounds(1, false);
    EXPECT_EQ(line_.sent.size(), 20U) << "so many on their way, and no more";
    EXPECT_EQ(publisher_->Position(), 0U);
    line_.user_->Acked(4, "");  // out of turn: what is before it is not taken yet
    EXPECT_EQ(publisher_->Position(), 0U);
    for (int number = 1; number <= 5; ++number) {
        line_.user_->Acked(number, "");
    }
    EXPECT_EQ(publisher_->Position(), 1003U);
    Rounds(10);
    EXPECT_EQ(publisher_->Position(), 1030U);
    EXPECT_EQ(Kept(), 1030U);
    EXPECT_EQ(Sent(),
              "status clock 1001 1002 1003 1004 1005 1006 1007 1008 1009 1010 1011 1012 1013 1014 1015 1016 1017 1018 "
              "1019 1020 1021 1022 1023 1024 1025 1026 1027 1028 1029 1030 ");
}

TEST_F(MqttPublisher, WhatWasNotTakenIsSentAnewAfterALoss) {
    Make();
    for (std::uint64_t seq = 1001; seq <= 1005; ++seq) {
        Tell(seq, "clock");
    }
    Connect();
    Rounds(1, false);
    EXPECT_EQ(Sent(), "status clock 1001 1002 1003 1004 1005 ");
    for (int number = 1; number <= 4; ++number) {
        line_.user_->Acked(number, "");
    }
    line_.user_->Lost("gone");
    EXPECT_EQ(said_.back(), "failed: gone");
    EXPECT_EQ(line_.opened, 1);
    Rounds(20);
    EXPECT_EQ(line_.opened, 2);
    line_.user_->Opened();
    Rounds(5);
    EXPECT_EQ(Sent(), "status clock 1003 1004 1005 ");
    EXPECT_EQ(said_.back(), "ok: ");
}

TEST_F(MqttPublisher, ThePositionSurvivesTheProgram) {
    const auto history = folder_ / "h.db";
    const auto store = support::OpenStore(history);
    for (std::uint64_t seq = 1; seq <= 10; ++seq) {
        const Event event = support::ResultOf(seq, "clock", "ok");
        ASSERT_FALSE(store->Write({&event, 1}, event.time));
    }
    ASSERT_FALSE(PositionFile(folder_ / "position", "room12").Save(6));
    Make(10, 1000, history);
    Connect();
    Rounds(5);
    EXPECT_EQ(Sent(), "status 7 8 9 10 ");
    Make(10, 1000, history);
    Connect();
    Rounds(5);
    EXPECT_EQ(Sent(), "status ") << "all of it was taken before";
}

TEST_F(MqttPublisher, NumbersThatWereNeverKeptAreNotBehindThePosition) {
    ASSERT_FALSE(PositionFile(folder_ / "position", "room12").Save(20));
    Make(10);
    Connect();
    Tell(11, "clock");
    Rounds(3);
    EXPECT_EQ(Sent(), "status clock 11 ");
}

TEST_F(MqttPublisher, WhatIsMissingIsSaid) {
    ASSERT_FALSE(PositionFile(folder_ / "position", "room12").Save(6));
    Make(9);
    Tell(10, "clock");
    Tell(12, "clock");
    Connect();
    Rounds(5);
    EXPECT_EQ(Sent(), "status clock 7-9 10 11-11 12 ");
    EXPECT_EQ(publisher_->Position(), 12U);
}

TEST_F(MqttPublisher, AtTheVeryFirstNothingIsMissing) {
    Make(1000);
    Tell(1001, "clock");
    Connect();
    Rounds(3);
    EXPECT_EQ(Sent(), "status clock 1001 ");
}

TEST_F(MqttPublisher, TheRateHolds) {
    Make(1000, 10);
    for (std::uint64_t seq = 1001; seq <= 1100; ++seq) {
        Tell(seq, "clock");
    }
    Connect();
    (void)publisher_->Go(now_);
    (void)Sent();
    line_.AckAll();
    now_ += 1s;
    Rounds(50);
    EXPECT_EQ(line_.sent.size(), 10U + 49U) << "a second's worth at once, then one each tenth of a second";
}

TEST_F(MqttPublisher, StatesComeFirstAndEventsAreNotKeptBack) {
    Make();
    for (std::uint64_t i = 1; i <= 8; ++i) {
        Tell(1000 + i, "item" + std::to_string(i));
    }
    Connect();
    Rounds(5);
    EXPECT_EQ(Sent(),
              "status item1 item2 item3 1001 item4 item5 item6 1002 item7 item8 1003 1004 1005 1006 1007 1008 ");
}

TEST_F(MqttPublisher, AnItemThatStaysAsItIsIsNotSentAgain) {
    Make();
    Tell(1001, "clock");
    Connect();
    Rounds(3);
    (void)Sent();
    Event items;
    items.kind = EventKind::kItems;
    publisher_->Tell(items);
    Rounds(2);
    EXPECT_EQ(Sent(), "");
    client::Inventory inventory;
    inventory.items.resize(1);
    inventory.items[0].name = "clock";
    inventory.items[0].owners.resize(1);
    ASSERT_TRUE(picture_.SetInventory(inventory));
    publisher_->Tell(items);
    Rounds(2);
    EXPECT_EQ(Sent(), "clock ");
}

TEST_F(MqttPublisher, TheServersStateIsPartOfTheStatus) {
    Make();
    Connect();
    Rounds(3);
    (void)Sent();
    Event up;
    up.kind = EventKind::kServer;
    up.seq = 1001;
    up.status = "up";
    picture_.Apply(up);
    backlog_->Tell(up);
    publisher_->Tell(up);
    Rounds(1);
    EXPECT_TRUE(json::Value::Parse(line_.sent.at(0).payload)->Read()["server"]["isUp"].Flag().value_or(false));
    EXPECT_EQ(Sent(), "status 1001 ");
}

TEST_F(MqttPublisher, TriesAgainLaterAndLater) {
    line_.fails = true;
    Make();
    std::vector<Publisher::Clock::duration> waits;
    for (int i = 0; i < 12; ++i) {
        const auto next = publisher_->Go(now_);
        waits.push_back(next - now_);
        now_ = next;
    }
    EXPECT_EQ(line_.opened, 12);
    EXPECT_EQ(said_.back(), "failed: no broker");
    for (std::size_t i = 0; i < waits.size(); ++i) {
        const auto middle = 1000ms * (1U << std::min<std::size_t>(i, 5));
        EXPECT_GE(waits[i], middle / 2);
        EXPECT_LT(waits[i], middle / 2 * 3);
    }
}

TEST_F(MqttPublisher, ABrokerThatNeverAnswersIsLeft) {
    Make();
    (void)publisher_->Go(now_);
    EXPECT_EQ(publisher_->Go(now_ + 9s), now_ + 10s);
    EXPECT_EQ(said_.size(), 1U);
    (void)publisher_->Go(now_ + 10s);
    EXPECT_EQ(said_.back(), "failed: the broker does not answer");
}

TEST_F(MqttPublisher, ABrokerThatTakesNothingIsLeft) {
    Make();
    Connect();
    EXPECT_EQ(publisher_->Go(now_), now_ + 30s);
    (void)publisher_->Go(now_ + 30s);
    EXPECT_EQ(said_.back(), "failed: the broker takes nothing any more");
}

TEST_F(MqttPublisher, ARefusedMessageCountsAsNotTaken) {
    Make();
    Tell(1001, "clock");
    Connect();
    Rounds(1, false);
    line_.user_->Acked(1, "");
    line_.user_->Acked(2, "Not authorized");
    (void)publisher_->Go(now_);
    EXPECT_EQ(said_.back(), "failed: the broker refuses a message: Not authorized");
    EXPECT_EQ(publisher_->Position(), 0U);
}

TEST_F(MqttPublisher, AMessageThatCanNeverBeSentKeepsNoOtherBack) {
    line_.forbidden = "\"seq\":1002";
    Make();
    Tell(1001, "clock");
    Tell(1002, "other");
    Tell(1003, "clock");
    Connect();
    Rounds(5);
    EXPECT_EQ(Sent(), "status clock 1001 1003 ");
    EXPECT_EQ(publisher_->Position(), 1003U);
    EXPECT_EQ(said_.back(), "degraded: the broker allows no such message on ominspect/room12/events: too big");
}

TEST_F(MqttPublisher, ALineThatBreaksWhileSendingIsALoss) {
    Make();
    Connect();
    line_.breaks = true;
    Rounds(1);
    EXPECT_EQ(said_.back(), "failed: the line broke");
}

TEST_F(MqttPublisher, RequestsAreTakenOnlyWhereSomebodyMayAsk) {
    Make();
    Connect();
    Rounds(2);
    EXPECT_TRUE(line_.subscribed.empty());
    line_ = FakeLine();
    Make(1000, 1000, "", true);
    Connect();
    Rounds(2);
    EXPECT_EQ(line_.subscribed, std::vector<std::string>{"ominspect/room12/run/desk"});
    (void)Sent();
    line_.user_->Came({"ominspect/room12/run/desk", R"({"item":"clock"})", false, "ominspect/room12/reply/me", "c"});
    Event ended;
    ended.kind = EventKind::kOperation;
    ended.document = R"({"id":7,"state":"ended"})";
    publisher_->Tell(ended);
    Rounds(2);
    ASSERT_EQ(line_.sent.size(), 2U);
    EXPECT_EQ(line_.sent[0].payload, R"({"state":"accepted","id":7})");
    EXPECT_EQ(line_.sent[1].payload, R"({"id":7,"state":"ended"})");
    EXPECT_EQ(line_.sent[1].correlation, "c");
}

TEST_F(MqttPublisher, SaysGoodbye) {
    Make();
    Connect();
    Rounds(2);
    (void)Sent();
    publisher_->BeginEnd(now_);
    (void)publisher_->Go(now_);
    EXPECT_FALSE(publisher_->IsOver()) << "the goodbye is not taken yet";
    ASSERT_EQ(line_.sent.size(), 1U);
    EXPECT_EQ(line_.sent[0].topic, "ominspect/room12/status");
    EXPECT_TRUE(line_.sent[0].isRetained);
    EXPECT_EQ(*json::Value::Parse(line_.sent[0].payload)->Read()["state"].Text(), "offline");
    line_.AckAll();
    (void)publisher_->Go(now_);
    EXPECT_TRUE(publisher_->IsOver());
    EXPECT_EQ(line_.endings, "polite ");
}

TEST_F(MqttPublisher, DoesNotWaitForABrokerThatTakesNoGoodbye) {
    Make();
    Connect();
    publisher_->BeginEnd(now_);
    EXPECT_EQ(publisher_->Go(now_), now_ + 2s);
    (void)publisher_->Go(now_ + 2s);
    EXPECT_TRUE(publisher_->IsOver());
    EXPECT_EQ(line_.endings, "") << "the broker tells that it was lost";
}

TEST_F(MqttPublisher, APositionThatCannotBeKeptIsSaid) {
    ASSERT_TRUE(std::filesystem::create_directory(folder_ / "position"));
    Make();
    Tell(1001, "clock");
    Connect();
    Rounds(10);
    EXPECT_EQ(said_.back(),
              "degraded: " + (folder_ / "position") + ": Is a directory; after a restart, results are sent once more");
    std::filesystem::remove(folder_ / "position");
    Tell(1002, "clock");
    Rounds(10);
    EXPECT_EQ(said_.back(), "ok: ");
    EXPECT_EQ(Kept(), 1002U);
}

}  // namespace
