// The whole life of a group, as the requesters' library has it.
#include "ominspect/client/group.h"

#include <atomic>
#include <future>
#include <new>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "client_fixture.h"
#include "support/process_state.h"

namespace support {
namespace {

class ClientGroup : public Client {
protected:
    // How many messages of this id the server has received.
    int Requests(const std::string& id) const {
        const std::string log = Contents(folder_.Path() / "inspect.log");
        const std::string message = "recv msg id " + id + " ";
        int count = 0;
        for (std::size_t at = log.find(message); at != std::string::npos; at = log.find(message, at + 1)) {
            ++count;
        }
        return count;
    }
};

TEST_F(ClientGroup, AGroupCallsBackWithItsRecordAndDoesNotLinger) {
    const Child server = StartServer();
    const Child owner = StartOwner({"ok", "later:1000"});
    std::uint32_t taskId = 0;
    std::optional<GroupRecord> record;
    GroupOptions options;
    options.onStart = [&](std::uint32_t id, std::size_t first, std::size_t count) {
        taskId = id;
        EXPECT_EQ(first, 0U);
        EXPECT_EQ(count, 2U);
    };
    options.onRecord = [&](const GroupRecord& arrived) { record = arrived; };
    EXPECT_FALSE(RunGroup(TheSession(), std::vector<Request>{{"ok", ""}, {"later", ""}}, options, kEnough));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->taskId, taskId);
    ASSERT_EQ(record->items.size(), 2U);
    EXPECT_EQ(record->items[0].result.status, "success");
    EXPECT_LE(*record->items[0].start, *record->items[0].end);
    EXPECT_EQ(record->items[1].result.text, "timeout");
    EXPECT_FALSE(*TheSession().StopTask(taskId, kEnough)) << "the task lingers";
    EXPECT_EQ(*TheSession().State("ok", kEnough), ItemState::kIdleOrUnknown);
}

TEST_F(ClientGroup, ACancelledGroupIsStoppedInTheServerAndStillTellsWhatItCameTo) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until", "ok"});
    std::optional<GroupRecord> record;
    GroupOptions options;
    options.onRecord = [&](const GroupRecord& arrived) { record = arrived; };
    const CancelWhen cancel([this] { return Saw("until running"); });
    const auto error =
        RunGroup(TheSession(), std::vector<Request>{{"ok", ""}, {"until", ""}}, options, {kEnough, cancel.Token()});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ErrorCode::kCancelled);
    EXPECT_EQ(error->text, "cancelled; the group was stopped");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->items[0].result.status, "success");
    EXPECT_EQ(record->items[1].result.text, "stopped");
}

// As for a lack of memory. Nobody else could stop the group, and its name would be taken for minutes.
TEST_F(ClientGroup, AGroupThatThrowsIsAskedToStop) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until", "ok"});
    GroupOptions options;
    options.onStart = [](std::uint32_t, std::size_t, std::size_t) { throw std::bad_alloc(); };
    EXPECT_THROW((void)RunGroup(TheSession(), std::vector<Request>{{"until", ""}}, options, kEnough), std::bad_alloc);
    EXPECT_EQ(Requests("6"), 1);
    options.onStart = {};
    options.waitForTurn = true;
    EXPECT_FALSE(RunGroup(TheSession(), std::vector<Request>{{"ok", ""}}, options, kEnough));
}

TEST_F(ClientGroup, NeedsNobodyToListen) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until", "ok"});
    EXPECT_FALSE(RunGroup(TheSession(), std::vector<Request>{{"ok", ""}}, {}, kEnough));
    const CancelWhen cancel([this] { return Saw("until running"); });
    const auto error = RunGroup(TheSession(), std::vector<Request>{{"until", ""}}, {}, {kEnough, cancel.Token()});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text, "cancelled; the group was stopped");
}

TEST_F(ClientGroup, AGroupThatWaitsForItsTurnSaysSoOnce) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until", "ok"});
    const auto first = TheSession().StartGroup(std::vector<Request>{{"until", ""}}, kEnough);
    ASSERT_TRUE(first);
    // It ends when the server has refused the other one twice.
    const std::jthread end([&] {
        EXPECT_TRUE(Eventually([this] { return Requests("19") >= 3; }));
        EXPECT_TRUE(TheSession().StopTask(first->TaskId(), kEnough));
    });
    int refused = 0;
    GroupOptions options;
    options.waitForTurn = true;
    options.onRefused = [&refused] { ++refused; };
    EXPECT_FALSE(RunGroup(TheSession(), std::vector<Request>{{"ok", ""}}, options, kEnough));
    EXPECT_EQ(refused, 1);
}

// A synchronous run holds the server meanwhile.
TEST_F(ClientGroup, AGroupThatIsCancelledBeforeItsStartIsAnsweredIsStoppedToo) {
    const Child server = StartServer();
    const Child owner = StartOwner({"until"});
    Child holding = StartOwner({"never"}, "owner2");
    const Child run({OMINSPECTCTL_PROGRAM, "run", "--sync", "never"}, {"XDG_STATE_HOME=" + folder_.Path().string()});
    ASSERT_TRUE(Eventually([this] { return Saw("never running"); }));
    std::stop_source source;
    std::atomic<pid_t> thread{0};
    auto group = std::async(std::launch::async, [&] {
        thread = gettid();
        return RunGroup(TheSession(), std::vector<Request>{{"until", ""}}, {}, {kEnough, source.get_token()});
    });
    EXPECT_TRUE(Eventually([&] { return thread != 0 && StateOf(thread) == 'S'; })) << "it does not wait";
    source.request_stop();
    holding.Kill();
    const auto error = group.get();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text, "cancelled; the group was stopped");
}

TEST_F(ClientGroup, AGroupThatIsCancelledAtItsRecordDoesNotLingerEither) {
    const Child server = StartServer();
    const Child owner = StartOwner({"ok"});
    std::stop_source source;
    std::uint32_t taskId = 0;
    GroupOptions options;
    options.onRecord = [&](const GroupRecord& record) {
        taskId = record.taskId;
        source.request_stop();
    };
    EXPECT_FALSE(RunGroup(TheSession(), std::vector<Request>{{"ok", ""}}, options, {kEnough, source.get_token()}));
    ASSERT_NE(taskId, 0U);
    EXPECT_FALSE(*TheSession().StopTask(taskId, kEnough)) << "the task lingers";
}

TEST_F(ClientGroup, AStoppedGroupWhoseOwnerDoesNotStopIsSaidToLinger) {
    const Child server = StartServer();
    const Child owner = StartOwner({"later"});
    const auto error = RunGroup(TheSession(), std::vector<Request>{{"later", ""}}, {}, {seconds(4), std::stop_token()});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ErrorCode::kTimeLimit);
    EXPECT_TRUE(error->text.ends_with("; the group was asked to stop, but items of it still run")) << error->text;
    const auto refused = RunGroup(TheSession(), std::vector<Request>{{"x", ""}}, {}, kEnough);
    EXPECT_EQ(refused->code, ErrorCode::kGroupBusy);
}

}  // namespace
}  // namespace support
