// What the items of a process have measured, as the process itself tells it.
#include <csignal>
#include <mutex>
#include <string>
#include <vector>

#include "client_fixture.h"

namespace support {
namespace {

class ClientPerfData : public Client {
protected:
    Child StartMeasurer(const std::string& process, const std::string& item) {
        const std::string file = folder_ / (process + ".xml");
        WriteFile(file, "<Owner process=\"" + process + "\"><Item name=\"" + item +
                            "\" isSync=\"true\"><Command>/bin/sh</Command><Arg>-c</Arg>"
                            "<Arg>echo \"OK | $INSPECT_CMD\"</Arg></Item></Owner>");
        Child owner({OMINSPECT_OWNER_PROGRAM, file});
        EXPECT_TRUE(owner.EventuallyWrote("serves 1 items"));
        return owner;
    }

    std::optional<Error> Subscribe(Session& session, const std::string& process) {
        return session.SubscribePerfData(process, [this, process](const PerfData& perfData) {
            std::string line = process + " " + perfData.item;
            for (const PerfValue& value : perfData.values) {
                line += " " + value.label + "=" + std::to_string(value.value) + value.unit;
            }
            const std::lock_guard lock(mutex_);
            told_.push_back(line);
        });
    }

    std::vector<std::string> Told() {
        const std::lock_guard lock(mutex_);
        return told_;
    }

    bool EventuallyTold(const std::vector<std::string>& expected) {
        const bool isTold = Eventually([&] { return Told() == expected; });
        EXPECT_EQ(Told(), expected);
        return isTold;
    }

    void Run(const std::string& item, const std::string& cmd) {
        const auto reply = TheSession().Run({item, cmd}, kEnough);
        ASSERT_TRUE(reply) << reply.Failure().text;
        EXPECT_EQ(reply->result.text, "OK");
    }

private:
    std::mutex mutex_;  // guards `told_`
    std::vector<std::string> told_;
};

TEST_F(ClientPerfData, ComesFromTheProcessesThatWereAskedFor) {
    const Child server = StartServer();
    const Child one = StartMeasurer("one", "disk");
    const Child other = StartMeasurer("other", "load");
    ASSERT_FALSE(Subscribe(TheSession(), "one"));
    Run("load", "a=1");
    Run("disk", "used=2.5MB free=1%");
    EXPECT_TRUE(EventuallyTold({"one disk used=2.500000MB free=1.000000%"}));
    ASSERT_FALSE(Subscribe(TheSession(), "other"));
    Run("load", "a=1");
    EXPECT_TRUE(EventuallyTold({"one disk used=2.500000MB free=1.000000%", "other load a=1.000000"}));
    Run("load", "nothing");
    EXPECT_TRUE(EventuallyTold({"one disk used=2.500000MB free=1.000000%", "other load a=1.000000", "other load"}));
}

TEST_F(ClientPerfData, ComesAgainFromAProcessThatCameBack) {
    const Child server = StartServer();
    ASSERT_FALSE(Subscribe(TheSession(), "one")) << "it is not there yet";
    {
        Child owner = StartMeasurer("one", "disk");
        Run("disk", "a=1");
        EXPECT_TRUE(EventuallyTold({"one disk a=1.000000"}));
        owner.Signal(SIGTERM);
        owner.Wait();
    }
    const Child again = StartMeasurer("one", "disk");
    Run("disk", "a=2");
    EXPECT_TRUE(EventuallyTold({"one disk a=1.000000", "one disk a=2.000000"}));
}

TEST_F(ClientPerfData, NeedsNoOtherEvents) {
    auto session = Session::Open();
    ASSERT_TRUE(session);
    Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder_.Path().string()});
    const Child owner = StartMeasurer("one", "disk");
    ASSERT_FALSE(Subscribe(**session, "one"));
    EXPECT_TRUE(Eventually([&] {
        const auto reply = (*session)->Run({"disk", "a=1"}, kEnough);
        return reply && reply->result.text == "OK";  // the server is there, and the item registered
    }));
    EXPECT_TRUE(Eventually([&] { return !Told().empty(); }));
}

TEST_F(ClientPerfData, OfANameThatIsNoneIsRefused) {
    EXPECT_EQ(Subscribe(TheSession(), "")->code, ErrorCode::kInvalidArgument);
    EXPECT_EQ(Subscribe(TheSession(), "sixteen_bytes_xx")->code, ErrorCode::kInvalidArgument);
}

}  // namespace
}  // namespace support
