// What the system gives: descriptors, threads, a steady clock, system calls that end. All of it may fail for a while.
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>

#include "faults.h"
#include "support/raw_connection.h"

namespace support {
namespace {

namespace fs = std::filesystem;

class Resources : public Faults {
protected:
    void StartWithShims() { StartAll(true, {"LD_PRELOAD=" SHIMS, "FAULT_FOLDER=" + Folder()}); }
    void SwitchOn(const std::string& fault, const std::string& text = "") const {
        WriteFile(Folder() + "/" + fault, text);
    }
    void SwitchOff(const std::string& fault) const { fs::remove(Folder() + "/" + fault); }

    static std::vector<std::string> Numbered(const std::string& name, int count) {
        std::vector<std::string> names;
        for (int i = 0; i < count; ++i) {
            names.push_back(name + std::to_string(i));
        }
        return names;
    }
};

// Each job that waits for an owner needs a descriptor: those that find none end as runs that failed.
TEST_F(Resources, WithoutDescriptorsRunsFailAndTheServerGoesOn) {
    StartAll(true);
    const std::vector<std::string> items = Numbered("never", 40);
    const Child owner = StartOwner("silent", items);
    rlimit former{};
    const rlimit few{Descriptors(Pid()) + 8, Descriptors(Pid()) + 8};
    ASSERT_EQ(prlimit(Pid(), RLIMIT_NOFILE, &few, &former), 0);
    for (const std::string& item : items) {
        Start(item);
    }
    ExpectServing();  // with all descriptors in use
    for (size_t i = 0; i < items.size(); ++i) {
        const std::string result = AwaitResult();
        EXPECT_TRUE(result.ends_with(" fail/run err")) << result;
    }
    ExpectNothingStays();
    EXPECT_NE(ServerLog().find("OsMsgSynSend fail"), std::string::npos);
}

// 1,024 connections use up the bus daemon's descriptors, not the server's, which has one connection.
TEST_F(Resources, AThousandConnectionsCostTheServerNone) {
    StartAll();
    {
        std::vector<std::unique_ptr<RawConnection>> crowd;
        for (int i = 0; i < 1000; ++i) {
            crowd.push_back(std::make_unique<RawConnection>());
            crowd.back()->Post("ominspect", "iom_5fsrv_5ftask", 9999);
        }
        ExpectServing();
    }
    ExpectNothingStays();
}

TEST_F(Resources, WithoutThreadsGroupsAreRefusedAndSynchronousRunsGoOn) {
    StartWithShims();
    const Child owner = StartOwner("owner1", {"later:1000"});
    SwitchOn("no-threads");
    ExpectServing();
    EXPECT_EQ(Send(19, RequestText("ok") + '\0' + '\0').data, (std::vector<unsigned char>{14, 0, 0, 0}));
    Start("ok");  // is lost: nobody would wait for its result
    ASSERT_TRUE(Eventually([this] { return ServerLog().find("createthread error") != std::string::npos; }));
    const Outcome run = support::Run({OMINSPECTCTL_PROGRAM, "run", "ok", "--timeout", "1"});
    EXPECT_EQ(run.exitCode, 4) << run.output;  // the requester is told at the end of its limit
    SwitchOff("no-threads");
    ExpectNothingStays();
    Start("ok");
    EXPECT_EQ(AwaitResult(), "ok success/answered by well");
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    EXPECT_EQ(AwaitResult(), "later fail/timeout");
    ExpectNothingStays();
}

// There is no time limit without a thread for it: the run fails at once, and the item stays as it is.
TEST_F(Resources, WithoutAThreadForItsTimerARunFailsAndItsItemIsHeldUntilItIsTakenBack) {
    StartWithShims();
    const Child owner = StartOwner("owner1", {"later:1000"});
    SwitchOn("no-threads");
    EXPECT_EQ(Text(RunItem("later")), "later fail/wait err");
    SwitchOff("no-threads");
    EXPECT_EQ(Text(RunItem("later")), "later fail/wait err");
    TakeEvents();
    ExpectServing();
    EXPECT_TRUE(EventuallyEvents({"ok running/begin", "ok success/answered by well"}));  // nothing says busy or idle
    Send(3, std::string("later", 6));
    ExpectNothingStays();
}

// The clock shows when a run was, and decides nothing.
TEST_F(Resources, AClockThatIsSetEndsNoRunAndProlongsNone) {
    StartWithShims();
    const Child owner = StartOwner("owner1", {"later:1000"});
    for (const char* jump : {"-100000000", "100000000", "-1000000000"}) {
        Start("later");
        EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
        SwitchOn("clock", jump);
        ExpectServing();
        EXPECT_EQ(AwaitResult(), "later fail/timeout");
    }
    EXPECT_NE(ServerLog().find("\n1995-"), std::string::npos) << "the clock was not set";
    ExpectNothingStays();
}

// A requester's durations are those of its own steady clock.
TEST_F(Resources, AGroupOverAClockThatIsSetHasItsResults) {
    StartWithShims();
    const Child owner = StartOwner("owner1", {"later:1000"});
    Child group({OMINSPECTCTL_PROGRAM, "group", "ok", "later", "--json"},
                {"LD_PRELOAD=" SHIMS, "FAULT_FOLDER=" + Folder()});
    ASSERT_TRUE(Eventually([this] { return ServerLog().find("start wait[later]") != std::string::npos; }));
    SwitchOn("clock", "-1000000000");
    EXPECT_EQ(group.Wait(), 1);
    EXPECT_NE(group.Output().find("\"timeout\""), std::string::npos) << group.Output();
    ExpectNothingStays();
}

// A handler that does nothing interrupts the server's calls; stops and continuations interrupt everybody's.
TEST_F(Resources, ThousandsOfSignalsLoseNothing) {
    StartAll();
    const Child owner = StartOwner("owner1", {"later:1000"});
    std::jthread storm([&](const std::stop_token& over) {
        for (int i = 0; !over.stop_requested(); ++i) {
            Server().Signal(SIGPIPE);
            if (i % 16 == 0) {
                owner.Signal(SIGSTOP);
                Server().Signal(SIGSTOP);
                Server().Signal(SIGCONT);
                owner.Signal(SIGCONT);
            }
        }
    });
    Start("later");
    for (int i = 0; i < 300; ++i) {
        ExpectServing();
    }
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    EXPECT_EQ(AwaitResult(), "later fail/timeout");
    const std::string group = RequestText("ok") + '\0' + RequestText("later") + '\0' + '\0';
    uint32_t taskId = 0;
    const Reply started = Send(19, group);
    ASSERT_EQ(started.data.size(), sizeof taskId);
    std::memcpy(&taskId, started.data.data(), sizeof taskId);
    EXPECT_EQ(AwaitMessage(1).size(), 6688U);
    Send(6, "", taskId);
    storm.request_stop();
    storm.join();
    ExpectNothingStays();
}

}  // namespace
}  // namespace support
