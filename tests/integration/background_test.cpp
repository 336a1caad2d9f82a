// Asynchronous runs and groups over the real bus.
#include <algorithm>
#include <csignal>

#include "support/eventually.h"
#include "system.h"

namespace support {
namespace {

std::string RequestText(const std::string& item) {
    return R"({"name":")" + item + R"(","cmd":"go"})";
}

std::string GroupPayload(const std::vector<std::string>& items) {
    std::string payload;
    for (const std::string& item : items) {
        payload += RequestText(item) + '\0';
    }
    return payload + '\0';
}

class InTheBackground : public System {
protected:
    static void Start(const std::string& item) { Post(18, RequestText(item), "ominspect", "iom_srv_task"); }

    static uint32_t StartGroup(const std::vector<std::string>& items) { return Number(Send(19, GroupPayload(items))); }

    static uint32_t Number(const Reply& reply) {
        uint32_t number = 0;
        EXPECT_EQ(reply.data.size(), sizeof number);
        if (reply.data.size() == sizeof number) {
            std::memcpy(&number, reply.data.data(), sizeof number);
        }
        return number;
    }

    // The next result that the server sends to this program.
    static std::string AwaitResult() { return Text(Reply{0, AwaitMessage(0)}.Result()); }

    static tagKivoOmInspectionGroupResult AwaitRecord() {
        tagKivoOmInspectionGroupResult record{};
        const std::vector<unsigned char> data = AwaitMessage(1);
        EXPECT_EQ(data.size(), 6688u);
        std::memcpy(&record, data.data(), std::min(sizeof record, data.size()));
        return record;
    }

    // How often the operations log holds a text.
    [[nodiscard]] size_t Occurrences(const std::string& text) const {
        const std::string log = ServerLog();
        size_t count = 0;
        for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) {
            ++count;
        }
        return count;
    }

    // Has the owner report an item's result.
    static void Report(const std::string& process, const char* item, const char* status, const char* text) {
        tagKivoOmInspectionResult report{};
        std::snprintf(report.name, sizeof report.name, "%s", item);
        std::snprintf(report.status, sizeof report.status, "%s", status);
        std::snprintf(report.text, sizeof report.text, "%s", text);
        Post(100, std::string(reinterpret_cast<const char*>(&report), sizeof report), process, "raw_owner");
    }
};

TEST_F(InTheBackground, AnItemThatIsAnsweredAtOnceGivesOneResult) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok"});
    Start("ok");
    EXPECT_EQ(AwaitResult(), "ok success/answered by owner1");
    EXPECT_TRUE(EventuallyEvents({"busy", "ok running/begin", "ok success/answered by owner1", "idle"}));
}

TEST_F(InTheBackground, AnItemThatIsReportedLaterGivesTwoResultsAndTheServerIsIdleAgain) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later", "ok"});
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");  // the server's own thread is free meanwhile
    Report("owner1", "later", "success", "done at last");
    EXPECT_EQ(AwaitResult(), "later success/done at last");
    EXPECT_TRUE(EventuallyAtRest(server));
    Start("later");  // nothing is left over from the first run
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    Report("owner1", "later", "success", "again");
    EXPECT_EQ(AwaitResult(), "later success/again");
}

TEST_F(InTheBackground, ProgressThatAnOwnerReportsReachesEveryRequester) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later"});
    const auto hears = [](const char* result) {
        EXPECT_EQ(AwaitResult(), result);
        EXPECT_EQ(AwaitResult(), result);
    };
    for (int requester = 0; requester < 2; ++requester) {
        Start("later");
        EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    }
    EXPECT_TRUE(Eventually([this] { return Occurrences("add requester [later] to [itest:itest]") == 2; }));
    Report("owner1", "later", "running", "40%");
    hears("later running/40%");
    Report("owner1", "later", "running", "80%");
    hears("later running/80%");
    Report("owner1", "later", "success", "done at last");
    hears("later success/done at last");
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(InTheBackground, AnOwnerThatDiesLeavesItsItemToTheTimeLimit) {
    const Child server = StartServer();
    Child owner = StartOwner("owner1", {"later:1000"});
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    owner.Kill();
    EXPECT_EQ(AwaitResult(), "later fail/timeout");
    EXPECT_TRUE(EventuallyAtRest(server));
}

TEST_F(InTheBackground, AGroupOfMixedItemsEndsWithACorrectRecord) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok", "later", "later_never:1000"});
    Child mortal = StartOwner("owner2", {"die"});
    const uint32_t taskId = StartGroup({"ok", "later", "later_never", "unknown", "die"});
    EXPECT_GT(taskId, 16u);
    EXPECT_EQ(mortal.Wait(), 128 + SIGKILL);
    Report("owner1", "later", "success", "done at last");
    const tagKivoOmInspectionGroupResult record = AwaitRecord();
    EXPECT_EQ(record.taskId, taskId);
    EXPECT_EQ(record.count, 5u);
    EXPECT_EQ(Text(record.items[0].result), "ok success/answered by owner1");
    EXPECT_EQ(Text(record.items[1].result), "later success/done at last");
    EXPECT_EQ(Text(record.items[2].result), "later_never fail/timeout");
    EXPECT_EQ(Text(record.items[3].result), "unknown fail/no support");
    EXPECT_EQ(Text(record.items[4].result), "die fail/run err");
    EXPECT_EQ(Number(Send(6, "", taskId)), 0u);
    EXPECT_TRUE(EventuallyAtRest(server));
    EXPECT_EQ(Number(Send(7, "ok")), 1u);  // back at "idle"
    EXPECT_TRUE(Eventually([taskId] { return Number(Send(6, "", taskId)) == 1; })) << "the job lingers";
}

TEST_F(InTheBackground, OfTwentyRequestsForAGroupAtOnceOneIsTaken) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later:1000"});
    std::vector<uint32_t> answers;
    for (int i = 0; i < 20; ++i) {
        answers.push_back(StartGroup({"later"}));
    }
    EXPECT_GT(answers[0], 16u);
    EXPECT_EQ(std::count(answers.begin(), answers.end(), 16u), 19);
    EXPECT_EQ(Text(AwaitRecord().items[0].result), "later fail/timeout");
    EXPECT_EQ(Number(Send(6, "", answers[0])), 0u);
    EXPECT_TRUE(EventuallyAtRest(server));
    const uint32_t again = StartGroup({"unknown"});
    EXPECT_GT(again, 16u);
    EXPECT_EQ(Number(Send(6, "", again)), 0u);
}

TEST_F(InTheBackground, ARequesterThatIsGoneLeavesTheServerHealthy) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later", "ok"});
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    OsProcDetach();
    ASSERT_EQ(OsProcAttach("itest2"), 0u);
    Report("owner1", "later", "success", "nobody hears it");
    EXPECT_TRUE(Eventually([] { return Text(RunItem("ok")) == "ok success/answered by owner1"; }));
}

}  // namespace
}  // namespace support
