// Runs of items over the real bus: owners that answer at once, later, wrongly, or not at all.
#include <csignal>

#include "system.h"

namespace support {
namespace {

class Runs : public System {};

TEST_F(Runs, AnItemThatIsAnsweredAtOnceGivesItsResultAndTheFourEvents) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok"});
    TakeEvents();
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
    EXPECT_TRUE(EventuallyEvents({"busy", "ok running/begin", "ok success/answered by owner1", "idle"}));
}

TEST_F(Runs, AnOwnersOwnStatusWordIsPassedOn) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"warn"});
    EXPECT_EQ(Text(RunItem("warn")), "warn warn/answered by owner1");
}

TEST_F(Runs, AnItemWhoseOwnerReportsLaterIsAnsweredWithoutAName) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"later"});
    TakeEvents();
    // The server waits for an entry with the empty name, which it does not know.
    EXPECT_EQ(Text(RunItem("later")), " fail/no support");
    EXPECT_TRUE(EventuallyEvents({"busy", "later running/begin"}));
    EXPECT_EQ(Send(7, "later").data, (std::vector<unsigned char>{0, 0, 0, 0}));

    tagKivoOmInspectionResult report{"later", "success", "done at last"};
    Post(100, std::string(reinterpret_cast<const char*>(&report), sizeof report), "owner1", "raw_owner");
    EXPECT_TRUE(EventuallyText("later", "done at last"));
}

TEST_F(Runs, AnUnknownItemIsNotSupported) {
    const Child server = StartServer();
    EXPECT_EQ(Text(RunItem("nobody_has_it")), "nobody_has_it fail/no support");
}

TEST_F(Runs, AnOwnerThatWasKilledBeforeTheRunGivesAFailureAtOnce) {
    const Child server = StartServer();
    Child owner = StartOwner("owner1", {"ok"});
    owner.Kill();
    EXPECT_EQ(Text(RunItem("ok")), "ok fail/run err");
}

TEST_F(Runs, AnOwnerThatDiesWhileItIsAskedGivesAFailureAtOnce) {
    const Child server = StartServer();
    Child owner = StartOwner("owner1", {"die"});
    EXPECT_EQ(Text(RunItem("die")), "die fail/run err");
    EXPECT_EQ(owner.Wait(), 128 + SIGKILL);
}

TEST_F(Runs, AnOwnerThatWasKilledAfterTheRunLeavesItsResultAndFailsTheNext) {
    const Child server = StartServer();
    Child owner = StartOwner("owner1", {"ok"});
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
    owner.Kill();
    EXPECT_EQ(Text(RunItem("ok")), "ok fail/run err");
    const Child again = StartOwner("owner1", {"ok"});
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
}

TEST_F(Runs, AnOwnerThatNeverAnswersGivesAFailureWhenItsTimeIsUp) {
    const Child server = StartServer(true);
    const Child owner = StartOwner("owner1", {"never", "ok"});
    EXPECT_EQ(Text(RunItem("never")), "never fail/run err");
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
}

TEST_F(Runs, AnItemWhoseOwnerDiedWhileItRanEndsAtItsTimeLimit) {
    const Child server = StartServer();
    Child owner = StartOwner("owner1", {"later:1000"});
    RunItem("later");
    owner.Kill();
    EXPECT_TRUE(EventuallyText("later", "timeout"));
}

TEST_F(Runs, AReplyOfTheWrongSizeNeverGivesABlankStatus) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"size_0", "size_191", "size_192", "size_193", "size_4096"});
    const std::string words(31, 'x');
    // Nothing, or more than a record, leaves what was preset before the owner was asked.
    EXPECT_EQ(Text(RunItem("size_0")), "size_0 fail/run err");
    EXPECT_EQ(Text(RunItem("size_193")), "size_193 fail/run err");
    EXPECT_EQ(Text(RunItem("size_4096")), "size_4096 fail/run err");
    // A shorter reply fills the record from its start; the name is always the requested one.
    EXPECT_EQ(Text(RunItem("size_191")), "size_191 " + words + "/" + std::string(127, 'x'));
    const tagKivoOmInspectionResult whole = RunItem("size_192");
    EXPECT_STREQ(whole.name, "size_192");
    EXPECT_EQ(std::string(whole.status), words);
    EXPECT_EQ(std::string(whole.text, sizeof whole.text), std::string(128, 'x'));
}

TEST_F(Runs, TheSecondOwnerOfAnItemDoesNotTakeItFromTheFirst) {
    const Child server = StartServer();
    const Child first = StartOwner("owner1", {"ok"});
    const Child second = StartOwner("owner2", {"ok"});
    EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by owner1");
}

TEST_F(Runs, TheServersOwnItemTellsTheLogDirectory) {
    const Child server = StartServer();
    EXPECT_TRUE(EventuallyText("kivo_om_get_log_dir", "/var/log/kivoshare"));
    EXPECT_EQ(Text(RunItem("kivo_om_get_log_dir")), "kivo_om_get_log_dir success//var/log/kivoshare");
}

}  // namespace
}  // namespace support
