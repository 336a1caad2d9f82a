// Owners that are killed, stopped, slow, that babble, and that register without end.
#include <algorithm>
#include <csignal>

#include "faults.h"
#include "raw_peer.h"

namespace support {
namespace {

// How many messages of one sender the server's queue takes; its share of 512.
constexpr int kQueueShare = 448;

class Owners : public Faults {
protected:
    // A name of an item that is as long as names may be.
    static std::string LongName(int number) {
        std::string name = std::to_string(number) + "_";
        return name + std::string(31 - name.size(), 'n');
    }

    // Says it for each number, never more at once than the queue takes.
    template <typename Say>
    static void Paced(const RawPeer& peer, int count, Say say) {
        for (int i = 0; i < count; ++i) {
            say(i);
            if (i % kQueueShare == kQueueShare - 2) {
                peer.AwaitServer();
            }
        }
        peer.AwaitServer();
    }
};

TEST_F(Owners, OneThatIsKilledInASynchronousRunIsARunError) {
    StartAll();
    Child owner = StartOwner("mortal", {"die", "other"});
    EXPECT_EQ(Text(RunItem("die")), "die fail/run err");
    EXPECT_EQ(owner.Wait(), 128 + SIGKILL);
    EXPECT_EQ(Text(RunItem("other")), "other fail/run err");  // nobody is there any more
    const Child again = StartOwner("mortal", {"die@ok"});
    EXPECT_EQ(Text(RunItem("die")), "die success/answered by mortal");
    ExpectNothingStays();
}

TEST_F(Owners, TwentyThatAreKilledInTheirRunsLeaveNothing) {
    StartAll();
    std::vector<Child> owners;
    for (int i = 0; i < 20; ++i) {
        const std::string number = std::to_string(i);
        owners.push_back(StartOwner("mortal" + number, {"later" + number + ":1000", "never" + number}));
        Start("never" + number);
        Start("later" + number);
        EXPECT_EQ(AwaitResult(), "later" + number + " running/answered by mortal" + number);
    }
    owners.clear();
    std::vector<std::string> expected;
    std::vector<std::string> results;
    for (int i = 0; i < 20; ++i) {
        expected.push_back("later" + std::to_string(i) + " fail/timeout");
        expected.push_back("never" + std::to_string(i) + " fail/run err");
        results.push_back(AwaitResult());
        results.push_back(AwaitResult());
    }
    std::ranges::sort(expected);
    std::ranges::sort(results);
    EXPECT_EQ(results, expected);
    ExpectNothingStays();
}

TEST_F(Owners, OneThatIsStoppedCostsItsLimitAndIsGoodAgainWhenItGoesOn) {
    StartAll(true);
    const Child owner = StartOwner("stopped", {"ok_too"});
    owner.Signal(SIGSTOP);
    Start("ok_too");
    ExpectServing();  // the others meanwhile
    EXPECT_EQ(AwaitResult(), "ok_too fail/run err");
    EXPECT_EQ(Text(RunItem("ok_too")), "ok_too fail/run err");
    owner.Signal(SIGCONT);
    EXPECT_TRUE(EventuallyText("ok_too", "answered by stopped"));  // its answers of before change nothing
    ExpectNothingStays();
}

TEST_F(Owners, ResultsThatNobodyAskedForEndNoRunAndHoldNobodyUp) {
    StartAll();
    const Child owner = StartOwner("honest", {"later:60000"});
    Start("later");
    EXPECT_EQ(AwaitResult(), "later running/answered by honest");
    const RawPeer babbler("babbler");
    std::string unknown("nobody's");
    unknown.resize(192);
    Paced(babbler, 5000, [&](int i) {
        switch (i % 5) {
            case 0:
                return babbler.Say(5, unknown);
            case 1:
                return babbler.Say(5, "");
            case 2:
                return babbler.Say(5, std::string("later").append(186, '\0'));
            case 3:
                return babbler.Say(5, std::string("later").append(188, '\0'));
            default:
                return babbler.Say(5, "later" + std::string(187, 'x'));
        }
    });
    ExpectServing();
    EXPECT_EQ(Text(RunItem("nobody's")), "nobody's fail/no support");
    Start("later");  // it still runs
    EXPECT_EQ(AwaitResult(), "later running/answered by honest");
    std::string result("later");
    result.resize(32);
    result += "success";
    result.resize(192);
    Post(100, result, "honest", "raw_owner");
    EXPECT_EQ(AwaitResult(), "later success/");
    EXPECT_EQ(AwaitResult(), "later success/");
    ExpectNothingStays();
}

TEST_F(Owners, AFloodOfResultsIsBoundedAndTheNextRequestIsAnswered) {
    StartAll();
    const RawPeer babbler("babbler");
    const std::string large(1 << 20, 'x');
    for (int i = 0; i < 100; ++i) {
        babbler.Say(5, large);
    }
    for (int i = 0; i < 20000; ++i) {
        babbler.Say(5, std::string(192, '\0'));
    }
    ExpectServing();
    babbler.AwaitServer();
    ExpectNothingStays(20 << 10);  // the queue's 16 MiB, and as much as the heap keeps of the reading
}

TEST_F(Owners, AnswersOfAnySizeAreARunErrorOrAResult) {
    StartAll();
    const Child owner = StartOwner("odd", {"size_0", "size_64", "size_191", "size_192", "size_193", "size_1048576"});
    EXPECT_EQ(Text(RunItem("size_0")), "size_0 fail/run err");
    EXPECT_EQ(RunItem("size_64").status, std::string(31, 'x'));
    for (const char* item : {"size_193", "size_1048576"}) {
        EXPECT_EQ(Text(RunItem(item)), std::string(item) + " fail/run err");
    }
    EXPECT_EQ(Send(0, RequestText("size_191")).data.size(), 192U);
    EXPECT_EQ(Send(0, RequestText("size_192")).data.size(), 192U);
    ExpectNothingStays();
}

TEST_F(Owners, OneThatRegistersInALoopKeepsOneItem) {
    StartAll();
    const RawPeer owner("loop");
    Paced(owner, 5000, [&](int /*i*/) { owner.Say(2, std::string("again", 6), 1000); });
    ExpectServing();
    Paced(owner, 5000, [&](int i) { owner.Say(i % 2 == 0 ? 3 : 2, std::string("again", 6)); });
    ExpectServing();
    owner.Say(3, std::string("again", 6));
    owner.AwaitServer();
    EXPECT_EQ(Text(RunItem("again")), "again fail/no support");
    ExpectNothingStays();
}

TEST_F(Owners, TenThousandItemsAreKeptAndTakenBack) {
    constexpr int kItems = 10000;
    StartAll();
    const RawPeer owner("many");
    Paced(owner, kItems, [&](int i) { owner.Say(2, LongName(i) + '\0', 1000); });
    ExpectServing();
    EXPECT_EQ(Send(7, LongName(0)).data, (std::vector<unsigned char>{1, 0, 0, 0}));
    EXPECT_EQ(Send(38, "").data.size(), 12296U);
    Paced(owner, kItems, [&](int i) { owner.Say(3, LongName(i) + '\0'); });
    EXPECT_EQ(Text(RunItem(LongName(0))), LongName(0) + " fail/no support");
    ExpectNothingStays(kItems);  // a KiB each, which the heap may keep
}

// The library registers them again, and no more at once than the server's queue takes.
TEST_F(Owners, TenThousandItemsOfTheLibraryComeBackAfterARestartOfTheServer) {
    constexpr int kItems = 10000;
    std::vector<std::string> command{ENGINE_OWNER_PROGRAM, "many"};
    for (int i = 0; i < kItems; ++i) {
        command.push_back(LongName(i) + ":1000");
    }
    Child server = StartServer();
    const Child owner(command);
    const auto known = [&](int i) { return Text(RunItem(LongName(i))) == LongName(i) + " success/"; };
    EXPECT_TRUE(Eventually([&] { return known(kItems - 1); }));
    server.Kill();
    const Child again = StartServer();
    for (int i = 0; i < kItems; i += 99) {
        EXPECT_TRUE(Eventually([&] { return known(i); })) << i;
    }
}

}  // namespace
}  // namespace support
