// What the server's fixed rules leave behind for a while, with its bound, and how a client keeps clear of it. The rules
// are part of the interface: these tests say what they cost.
#include "faults.h"

namespace support {
namespace {

class Leftovers : public Faults {
protected:
    void Begin(const std::vector<std::string>& items) {
        StartAll();
        owner_ = std::make_unique<Child>(StartOwner("owner1", items));
    }

    // As after its end.
    void RegisterAnew(const std::vector<std::string>& items) {
        owner_->Kill();
        owner_ = std::make_unique<Child>(StartOwner("owner1", items));
    }

    static void Report(const std::string& item, const char* text) {
        tagKivoOmInspectionResult report{};
        std::snprintf(report.name, sizeof report.name, "%s", item.c_str());
        std::snprintf(report.status, sizeof report.status, "success");
        std::snprintf(report.text, sizeof report.text, "%s", text);
        Post(100, std::string(reinterpret_cast<const char*>(&report), sizeof report), "owner1", "raw_owner");
    }

    // Starts a run that goes on, and takes it back to "idle" while it does.
    void RunAndReset(const std::string& item) {
        Start(item);
        EXPECT_EQ(AwaitResult(), item + " running/answered by owner1");
        ASSERT_TRUE(Eventually([&] { return Waits(item) > waits_; }));
        waits_ = Waits(item);
        Start(item, "done");
        EXPECT_EQ(AwaitResult(), item + " /done");
        AwaitMessage(0);  // the run's requester is told what the table holds
        EXPECT_TRUE(Eventually([&] { return Send(7, item).data[0] == 1; }));
    }

    // How many wait timers of the item have begun.
    [[nodiscard]] size_t Waits(const std::string& item) const {
        const std::string text = "start wait[" + item + "]";
        const std::string log = ServerLog();
        size_t count = 0;
        for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
            ++count;
        }
        return count;
    }

    [[nodiscard]] size_t ThreadsBeyondRest() const { return Jobs(Server()); }

private:
    std::unique_ptr<Child> owner_;
    size_t waits_ = 0;
};

// One thread for each such run, until the server ends.
TEST_F(Leftovers, AResetRunOfAnItemWithoutALimitLeavesItsTimer) {
    Begin({"later"});
    for (size_t run = 1; run <= 3; ++run) {
        RunAndReset("later");
        EXPECT_TRUE(Eventually([&] { return ThreadsBeyondRest() == run; })) << ThreadsBeyondRest();
    }
    ExpectServing();
}

// With a limit the timer is gone when that is over.
TEST_F(Leftovers, AResetRunOfAnItemWithALimitLeavesNothing) {
    Begin({"later:2000"});
    for (int run = 0; run < 3; ++run) {
        RunAndReset("later");
    }
    ExpectNothingStays();
}

// Who resets a run and starts another within the first one's limit gets that limit.
TEST_F(Leftovers, TheTimerOfAResetRunEndsTheNextOne) {
    Begin({"later:3000"});
    RunAndReset("later");
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    EXPECT_EQ(AwaitResult(), "later fail/timeout");
    ASSERT_EQ(Waits("later"), 2U);
    ExpectNothingStays();
}

// An owner that has ended is started again, and registers while its item runs.
TEST_F(Leftovers, AnOwnerThatRegistersAgainEndsTheRunAsIdleAndLeavesItsTimer) {
    Begin({"later:3000"});
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    ASSERT_TRUE(Eventually([&] { return Waits("later") == 1; }));
    RegisterAnew({"later:600000"});
    EXPECT_EQ(AwaitResult(), "later idle/init");
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    EXPECT_EQ(AwaitResult(), "later fail/timeout");  // the first run's
    ExpectServing();
}

// The reply tells of no item, and the run is held until the owner takes the item back.
TEST_F(Leftovers, ASynchronousRunThatGoesOnIsHeldUntilTheItemIsTakenBack) {
    Begin({"later:1000"});
    EXPECT_EQ(Text(RunItem("later")), " fail/no support");
    EXPECT_TRUE(Eventually([] { return Text(RunItem("later")) == "later fail/timeout"; }));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Text(RunItem("later")), "later fail/timeout");
    }
    EXPECT_EQ(Waits("later"), 1U);  // the owner was asked once
    TakeEvents();
    ExpectServing();
    EXPECT_TRUE(EventuallyEvents({"ok running/begin", "ok success/answered by well"}));  // nothing says busy or idle
    Send(3, std::string("later", 6));
    ExpectNothingStays();
}

TEST_F(Leftovers, AReportThatOvertakesTheAnswerIsLost) {
    Begin({"early:1000"});
    Start("early");
    EXPECT_EQ(AwaitResult(), "early running/answered by owner1");
    EXPECT_EQ(AwaitResult(), "early fail/timeout");
    ExpectNothingStays();
}

// A group resets its items when it ends, whoever runs them by then.
TEST_F(Leftovers, TheEndOfAGroupEndsTheRunOfAnotherAsIdle) {
    Begin({"later:2000"});
    const Reply started = Send(19, RequestText("later") + '\0' + '\0');
    uint32_t taskId = 0;
    ASSERT_EQ(started.data.size(), sizeof taskId);
    std::memcpy(&taskId, started.data.data(), sizeof taskId);
    ASSERT_TRUE(Eventually([&] { return Waits("later") == 1; }));
    Report("later", "done");
    AwaitMessage(1);
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    Send(6, "", taskId);
    EXPECT_EQ(AwaitResult(), "later idle/answered by owner1");
    ExpectNothingStays();  // once the limit is over
}

// A report counts whoever sends it: this program's own comes before its next message.
TEST_F(Leftovers, AReportForAnIdleItemMakesItNotIdleUntilItIsReset) {
    Begin({"later:1000"});
    EXPECT_EQ(Send(7, "later").data[0], 1);
    tagKivoOmInspectionResult late{};
    std::snprintf(late.name, sizeof late.name, "later");
    std::snprintf(late.status, sizeof late.status, "success");
    Post(5, std::string(reinterpret_cast<const char*>(&late), sizeof late), kServer, kServerTask);
    EXPECT_EQ(Send(7, "later").data[0], 0);
    Start("later", "done");
    EXPECT_EQ(AwaitResult(), "later /done");
    EXPECT_EQ(Send(7, "later").data[0], 1);
    ExpectNothingStays();
}

// The count of those who have joined a run has 8 bits. The 257th begins another run: the first one's timer stays until
// its limit, and the server says "busy" until it starts again.
TEST_F(Leftovers, ThreeHundredThatJoinARunGetItsResultAndTheServerStaysBusy) {
    Begin({"later:60000"});
    for (int i = 0; i < 300; ++i) {
        Start("later");
        EXPECT_EQ(AwaitResult(), "later running/answered by owner1");
    }
    Report("later", "done");
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(AwaitResult(), "later success/done");
    }
    EXPECT_TRUE(Eventually([&] { return ThreadsBeyondRest() == 1; })) << ThreadsBeyondRest();
    TakeEvents();
    ExpectServing();
    EXPECT_TRUE(EventuallyEvents({"ok running/begin", "ok success/answered by well"}));  // nothing says busy or idle
}

// An item that is named like a group shares the group's entry: while a group runs, its requester is given the group's.
TEST_F(Leftovers, AnItemNamedLikeAGroupIsTheGroupWhileThatRuns) {
    Begin({"unknown_group@ok"});
    EXPECT_EQ(Text(RunItem("unknown_group")), "unknown_group success/answered by owner1");
    const Reply started = Send(19, RequestText("ok") + '\0' + '\0');
    uint32_t taskId = 0;
    ASSERT_EQ(started.data.size(), sizeof taskId);
    std::memcpy(&taskId, started.data.data(), sizeof taskId);
    Start("unknown_group");
    EXPECT_EQ(AwaitResult(), "unknown_group running/unknown_group");
    AwaitMessage(1);
    Send(6, "", taskId);
    ExpectServing();
}

// Taking back an "item" with the name of a group takes the group away until the server starts again: then groups are
// not refused beside each other any more.
TEST_F(Leftovers, TakingBackAGroupsNameLeavesGroupsWithoutARefusal) {
    Begin({"later:1000"});
    Send(3, std::string("unknown_group", 14));
    for (int i = 0; i < 2; ++i) {
        const Reply started = Send(19, RequestText("ok") + '\0' + '\0');
        EXPECT_NE(started.data, (std::vector<unsigned char>{16, 0, 0, 0}));
        AwaitMessage(1);
    }
    ExpectServing();
}

// ---- our programs keep clear of it ----

// Every item of ominspect-owner has a limit, so none of its timers stays.
TEST_F(Leftovers, TheShippedOwnerAlwaysRegistersALimit) {
    StartAll();
    const Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE});
    ASSERT_TRUE(EventuallyText("always_ok", "fine")) << owner.Output();
    const Outcome list =
        support::Run({"busctl", "--address=" + bus_.Address(), "get-property", "com.kivo.proc.test_5fowner",
                      "/com/kivo/inspect", "com.kivo.Inspect.Owner", "Items"});
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_NE(list.output.find("a(sus)"), std::string::npos);
    EXPECT_EQ(list.output.find("\" 0 \""), std::string::npos) << list.output;
}

}  // namespace
}  // namespace support
