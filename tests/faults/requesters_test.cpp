// Requesters that vanish at every step of a request.
#include <memory>

#include "faults.h"
#include "raw_peer.h"

namespace support {
namespace {

constexpr int kRounds = 20;

class Requesters : public Faults {
protected:
    // Each has a name of its own, and none leaves in order.
    static std::unique_ptr<RawPeer> Join(int number) {
        return std::make_unique<RawPeer>("gone" + std::to_string(number));
    }

    // Ends the connection without a word, and what was not written yet with it.
    static void Vanish(std::unique_ptr<RawPeer> requester) { sd_bus_close(requester->Get()); }

    static void Subscribe(const RawPeer& requester) {
        EXPECT_GE(sd_bus_call_method(requester.Get(), "com.kivo.proc.ominspect", "/com/kivo/process",
                                     "com.kivo.Msg.Publisher", "Subscribe", nullptr, nullptr, ""),
                  0);
    }

    static void Report(const char* item, const char* text) {
        tagKivoOmInspectionResult report{};
        std::snprintf(report.name, sizeof report.name, "%s", item);
        std::snprintf(report.status, sizeof report.status, "success");
        std::snprintf(report.text, sizeof report.text, "%s", text);
        Post(100, std::string(reinterpret_cast<const char*>(&report), sizeof report), "owner1", "raw_owner");
    }
};

TEST_F(Requesters, BeforeTheyHaveAskedLeaveNothing) {
    StartAll();
    for (int i = 0; i < kRounds; ++i) {
        std::unique_ptr<RawPeer> requester = Join(i);
        Subscribe(*requester);
        Vanish(std::move(requester));
    }
    ExpectNothingStays();
}

// What they asked for is carried out all the same.
TEST_F(Requesters, WhoseRequestsStillWaitLeaveNothing) {
    StartAll(true);
    const Child owner = StartOwner("owner1", {"never", "ok_too"});
    const RawPeer first("first");
    first.AskOnly(0, RequestText("never"));  // keeps the server for two seconds
    ASSERT_TRUE(
        Eventually([this] { return ServerLog().find("InspectSingle[" + RequestText("never")) != std::string::npos; }));
    for (int i = 0; i < kRounds; ++i) {
        std::unique_ptr<RawPeer> requester = Join(i);
        requester->AskOnly(0, RequestText("ok_too"));
        requester->AskOnly(38, "");
        requester->AskOnly(18, RequestText("ok_too"));
        Vanish(std::move(requester));
    }
    ExpectNothingStays();
}

TEST_F(Requesters, WhileTheirRepliesAreOnTheWayLeaveNothing) {
    StartAll();
    for (int i = 0; i < kRounds; ++i) {
        std::unique_ptr<RawPeer> requester = Join(i);
        for (int request = 0; request < 50; ++request) {
            requester->AskOnly(38, "");
        }
        ExpectServing();  // some are answered by now, and nobody has looked at them
        Vanish(std::move(requester));
    }
    ExpectNothingStays();
}

TEST_F(Requesters, InTheMiddleOfASynchronousRunLeaveNothing) {
    StartAll(true);
    const Child owner = StartOwner("owner1", {"never"});
    std::unique_ptr<RawPeer> requester = Join(0);
    requester->AskOnly(0, RequestText("never"));
    ASSERT_TRUE(
        Eventually([this] { return ServerLog().find("InspectSingle[" + RequestText("never")) != std::string::npos; }));
    Vanish(std::move(requester));
    ExpectNothingStays();
}

TEST_F(Requesters, OneOfTwoThatWaitForARunLeavesItToTheOther) {
    StartAll();
    const Child owner = StartOwner("owner1", {"later:60000"});
    std::unique_ptr<RawPeer> first = Join(0);
    first->AskOnly(18, RequestText("later"));
    ASSERT_TRUE(Eventually([this] { return ServerLog().find("start wait[later]") != std::string::npos; }));
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    Vanish(std::move(first));
    Report("later", "done");
    EXPECT_EQ(AwaitResult(), "later success/done");
    ExpectNothingStays();
}

TEST_F(Requesters, AllThatWaitForARunLeaveItToItsEnd) {
    StartAll();
    const Child owner = StartOwner("owner1", {"later:60000"});
    for (int i = 0; i < kRounds; ++i) {
        std::unique_ptr<RawPeer> requester = Join(i);
        requester->AskOnly(18, RequestText("later"));
        requester->AwaitServer();
        Vanish(std::move(requester));
    }
    Report("later", "nobody hears it");
    ExpectNothingStays();
    EXPECT_EQ(Text(RunItem("later", "stop")), "later running/answered by owner1");
}

TEST_F(Requesters, OfAGroupLeaveItToItsEnd) {
    StartAll();
    const Child owner = StartOwner("owner1", {"later:1000"});
    std::unique_ptr<RawPeer> requester = Join(0);
    requester->AskOnly(19, RequestText("later") + '\0' + '\0');
    requester->AwaitServer();
    Vanish(std::move(requester));
    const auto number = [this] {  // of the group's task
        const std::string log = ServerLog();
        const size_t at = log.find("start group [");
        return at == std::string::npos ? 0UL : std::stoul(log.substr(at + 13));
    };
    ASSERT_TRUE(Eventually([&] { return number() != 0; }));
    ASSERT_TRUE(Eventually([this] { return ServerLog().find("timeout wait[later]") != std::string::npos; }));
    Send(6, "", static_cast<uint32_t>(number()));
    ExpectNothingStays();
}

}  // namespace
}  // namespace support
