// Who may ask for what, and what is answered.
#include "mqtt/requests.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ominspect;
using namespace ominspect::gateway;
using namespace ominspect::gateway::mqtt;

namespace {

class FakeCarrier : public Carrier {
public:
    Result<std::uint64_t> Run(const std::string& item, const std::string& argument, const std::string& who) override {
        done.push_back("run " + item + " " + argument + " " + who);
        return busy ? Result<std::uint64_t>(Error{ErrorCode::kRefused, "busy"}) : ++last;
    }
    Result<std::string> Collect(const std::string& who) override {
        done.push_back("collect " + who);
        return std::string("T1");
    }

    std::vector<std::string> done;
    std::uint64_t last = 40;
    bool busy = false;
};

class MqttRequests : public testing::Test {
protected:
    // The answers to one request.
    std::string Ask(const std::string& topic, const std::string& payload) {
        requests_.Take({"ominspect/room12/" + topic, payload, false, kReply, "c7"});
        return Answers();
    }

    std::string Answers() {
        std::string all;
        while (requests_.HasAnswer()) {
            const Outgoing answer = requests_.TakeAnswer();
            EXPECT_EQ(answer.topic, kReply);
            EXPECT_EQ(answer.correlation, "c7");
            EXPECT_FALSE(answer.isRetained);
            all += answer.payload;
        }
        return all;
    }

    static constexpr const char* kReply = "ominspect/room12/reply/me";
    FakeCarrier carrier_;
    Requests requests_{{{"desk", {"clock", "disk_*"}, true}, {"look", {"clock"}, false}, {"none", {}, false}},
                       Topics("room12"),
                       &carrier_};
};

TEST_F(MqttRequests, OnlyWhatSomebodyMayIsSubscribedTo) {
    EXPECT_EQ(requests_.Subscriptions(),
              (std::vector<std::string>{"ominspect/room12/run/desk", "ominspect/room12/collect/desk",
                                        "ominspect/room12/run/look"}));
    EXPECT_TRUE(Requests({}, Topics("room12"), &carrier_).Subscriptions().empty());
}

TEST_F(MqttRequests, ARunIsAcceptedAndAnsweredWhenItEnds) {
    EXPECT_EQ(Ask("run/desk", R"({"item":"clock","argument":"-v"})"), R"({"state":"accepted","id":41})");
    EXPECT_EQ(carrier_.done, std::vector<std::string>{"run clock -v mqtt:desk"});
    requests_.TellOperation(R"({"id":41,"state":"going-on"})");
    requests_.TellOperation(R"({"id":40,"state":"ended"})");
    EXPECT_EQ(Answers(), "");
    requests_.TellOperation(R"({"id":41,"state":"ended","results":[]})");
    EXPECT_EQ(Answers(), R"({"id":41,"state":"ended","results":[]})");
    requests_.TellOperation(R"({"id":41,"state":"ended","results":[]})");
    EXPECT_EQ(Answers(), "") << "one end, one answer";
}

TEST_F(MqttRequests, EachRoleRunsItsItemsOnly) {
    const std::string refused = R"({"state":"refused","reason":"the role may not run this item"})";
    EXPECT_NE(Ask("run/desk", R"({"item":"disk_root"})"), refused);
    EXPECT_EQ(Ask("run/desk", R"({"item":"dis"})"), refused);
    EXPECT_EQ(Ask("run/desk", R"({"item":"clock2"})"), refused);
    EXPECT_EQ(Ask("run/desk", R"({})"), refused);
    EXPECT_EQ(Ask("run/look", R"({"item":"disk_root"})"), refused);
    EXPECT_NE(Ask("run/look", R"({"item":"clock"})"), refused);
    EXPECT_EQ(Ask("run/none", R"({"item":"clock"})"), refused);
    EXPECT_EQ(Ask("run/nobody", R"({"item":"clock"})"), R"({"state":"refused","reason":"there is no such request"})");
    EXPECT_EQ(carrier_.done.size(), 2U);
}

TEST_F(MqttRequests, OnlyWhoMayCollectDoes) {
    EXPECT_EQ(Ask("collect/look", ""), R"({"state":"refused","reason":"the role may not collect logs"})");
    EXPECT_EQ(Ask("collect/desk", ""), R"({"state":"accepted","begin":"T1"})");
    EXPECT_EQ(carrier_.done, std::vector<std::string>{"collect mqtt:desk"});
    requests_.TellCollection(R"({"state":"done","begin":"T0"})");
    requests_.TellCollection(R"({"state":"going-on","begin":"T1"})");
    EXPECT_EQ(Answers(), "");
    requests_.TellCollection(R"({"state":"done","begin":"T1","bytes":5})");
    EXPECT_EQ(Answers(), R"({"state":"done","begin":"T1","bytes":5})");
}

TEST_F(MqttRequests, GarbageIsRefused) {
    for (const std::string payload : {"clock", "[]", "{", "null", R"({"item":7})", R"({"item":"clock","x":"y"})",
                                      R"({"item":"clock","item":"clock"})", "\xFF\xFE"}) {
        EXPECT_TRUE(Ask("run/desk", payload).starts_with(R"({"state":"refused")")) << payload;
    }
    EXPECT_EQ(Ask("run/desk", R"({"item":"clock","argument":")" + std::string(4096, 'x') + "\"}"),
              R"({"state":"refused","reason":"a request has at most 4096 bytes"})");
    EXPECT_TRUE(carrier_.done.empty());
}

TEST_F(MqttRequests, WithoutAPlaceForAnswersNothingIsDone) {
    const std::string topic = "ominspect/room12/run/desk";
    const std::string payload = R"({"item":"clock"})";
    requests_.Take({topic, payload, false, "", ""});
    requests_.Take({topic, payload, false, "ominspect/room13/reply/me", ""});
    requests_.Take({topic, payload, true, kReply, ""});
    requests_.Take({topic, payload, false, kReply, std::string(257, 'c')});
    EXPECT_TRUE(carrier_.done.empty());
    EXPECT_EQ(Answers(), "");
    EXPECT_EQ(requests_.Unanswerable(), 4U);
}

TEST_F(MqttRequests, ARefusalOfTheGatewayIsAnswered) {
    carrier_.busy = true;
    EXPECT_EQ(Ask("run/desk", R"({"item":"clock"})"), R"({"state":"refused","reason":"busy"})");
}

TEST_F(MqttRequests, AnswersThatNobodyTakesAreBounded) {
    for (int i = 0; i < 100; ++i) {
        requests_.Take({"ominspect/room12/run/desk", "garbage", false, kReply, "c7"});
    }
    int answers = 0;
    for (; requests_.HasAnswer(); ++answers) {
        (void)requests_.TakeAnswer();
    }
    EXPECT_EQ(answers, 64);
}

}  // namespace
