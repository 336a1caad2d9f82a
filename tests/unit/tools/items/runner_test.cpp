// Commands side by side: order, limits, stops, shutdown.
#include "items/runner.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/eventually.h"
#include "support/process_state.h"
#include "support/temp_folder.h"

using namespace ominspect::items;
using namespace std::chrono_literals;
using End = CommandOutcome::End;

namespace {

// As if every process hung in the kernel: signals have no effect, and those that kill are counted.
std::atomic<bool> g_isDeaf = false;
std::atomic<int> g_unheardKills = 0;

}  // namespace

// In the place of the C library's.
extern "C" int kill(pid_t pid, int signal) noexcept {
    if (g_isDeaf) {
        g_unheardKills += signal == SIGKILL ? 1 : 0;
        return 0;
    }
    return static_cast<int>(syscall(SYS_kill, pid, signal));
}

namespace {

// Collects the outcomes in the order in which they are told.
class Outcomes {
public:
    CommandRunner::Done As(const std::string& name) {
        return [this, name](const CommandOutcome& outcome) {
            const std::lock_guard lock(mutex_);
            told_.emplace_back(name, outcome);
        };
    }
    std::size_t Count() {
        const std::lock_guard lock(mutex_);
        return told_.size();
    }
    bool Wait(std::size_t count) {
        return support::Eventually([this, count] { return Count() >= count; });
    }
    std::string Order() {
        const std::lock_guard lock(mutex_);
        std::string out;
        for (const auto& [name, outcome] : told_) {
            out += name;
        }
        return out;
    }
    CommandOutcome Of(const std::string& name) {
        const std::lock_guard lock(mutex_);
        for (const auto& [told, outcome] : told_) {
            if (told == name) {
                return outcome;
            }
        }
        ADD_FAILURE() << name << " was not told";
        return {};
    }

private:
    std::mutex mutex_;
    std::vector<std::pair<std::string, CommandOutcome>> told_;
};

CommandSpec Shell(const std::string& script, std::chrono::milliseconds limit = 1h) {
    CommandSpec spec;
    spec.argv = {"/bin/sh", "-c", script};
    spec.limit = limit;
    return spec;
}

// Leaves nothing to the supervisor.
CommandRunner::Done Keep(CommandRunner::Id /*id*/) {
    return nullptr;
}

class RunnerTest : public testing::Test {
protected:
    CommandRunner& Make(unsigned maxParallel, std::chrono::milliseconds termGrace = 30s) {
        runner_ = std::make_unique<CommandRunner>(
            CommandRunner::Settings{.maxParallel = maxParallel, .termGrace = termGrace});
        return *runner_;
    }

    // A script that writes its process id to a file, says that it is ready, and sleeps.
    std::string Sleeper(const std::string& name, const std::string& before = "") const {
        const std::string path = folder_ / name;
        return before + "sleep 1000 & echo $! >'" + path + ".new'; mv '" + path + ".new' '" + path + "'; wait; wait";
    }
    pid_t PidOf(const std::string& name) const {
        std::string text;
        EXPECT_TRUE(support::Eventually([&] { return !(text = support::Contents(folder_ / name)).empty(); }));
        return text.empty() ? 0 : std::stoi(text);
    }

    const support::TempFolder folder_;
    Outcomes outcomes_;  // outlives the runner's thread
    std::unique_ptr<CommandRunner> runner_;
};

TEST_F(RunnerTest, TellsWhatACommandGave) {
    EXPECT_NE(Make(2).Start(Shell("echo hello; exit 1"), outcomes_.As("a")), 0U);
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("a").end, End::kExited);
    EXPECT_EQ(outcomes_.Of("a").code, 1);
    EXPECT_EQ(outcomes_.Of("a").output.out, "hello\n");
}

TEST_F(RunnerTest, TellsWhyACommandCouldNotBeStarted) {
    CommandSpec spec;
    spec.argv = {"/nonexistent/check"};
    spec.limit = 1h;
    Make(1).Start(spec, outcomes_.As("a"));
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("a").end, End::kNotStarted);
    EXPECT_EQ(outcomes_.Of("a").code, ENOENT);
}

TEST_F(RunnerTest, RunsCommandsSideBySide) {
    CommandRunner& runner = Make(3);
    for (const char* name : {"a", "b", "c"}) {
        runner.Start(Shell(Sleeper(name)), outcomes_.As(name));
    }
    EXPECT_NE(PidOf("a"), 0);
    EXPECT_NE(PidOf("b"), 0);
    EXPECT_NE(PidOf("c"), 0);
    EXPECT_EQ(outcomes_.Count(), 0U);
}

TEST_F(RunnerTest, StartsWaitingCommandsInOrderAsPlacesBecomeFree) {
    CommandRunner& runner = Make(1);
    const auto first = runner.Start(Shell(Sleeper("a")), outcomes_.As("a"));
    for (const char* name : {"b", "c", "d"}) {
        runner.Start(Shell("true"), outcomes_.As(name));
    }
    (void)PidOf("a");
    runner.Stop(first);
    ASSERT_TRUE(outcomes_.Wait(4));
    EXPECT_EQ(outcomes_.Order(), "abcd");
}

TEST_F(RunnerTest, RunsACommandOfTheCallerWithoutAFreePlace) {
    CommandRunner& runner = Make(1);
    runner.Start(Shell(Sleeper("a")), outcomes_.As("a"));
    (void)PidOf("a");
    const auto [outcome, id] = runner.Run(Shell("echo here; exit 3"), Keep);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(id, 0U);
    EXPECT_EQ(outcome->end, End::kExited);
    EXPECT_EQ(outcome->code, 3);
    EXPECT_EQ(outcome->output.out, "here\n");
    EXPECT_EQ(outcomes_.Count(), 0U);
}

TEST_F(RunnerTest, LeavesALongCommandOfTheCallerToTheSupervisor) {
    CommandRunner& runner = Make(1);
    CommandRunner::Id left = 0;
    const auto ran = runner.Run(Shell(Sleeper("a", "echo before; ")), [&](CommandRunner::Id id) {
        left = id;
        return outcomes_.As("a");
    });
    EXPECT_FALSE(ran.outcome);
    EXPECT_NE(ran.id, 0U);
    EXPECT_EQ(ran.id, left);
    (void)PidOf("a");
    EXPECT_EQ(outcomes_.Count(), 0U);
    runner.Stop(ran.id);
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("a").end, End::kStopped);
    EXPECT_EQ(outcomes_.Of("a").output.out, "before\n");
}

TEST_F(RunnerTest, TellsTheOutcomeItselfWhenItShutsDownWhileACommandIsLeft) {
    CommandRunner& runner = Make(1);
    std::jthread closer;
    const auto ran = runner.Run(Shell(Sleeper("a")), [&](CommandRunner::Id /*id*/) {
        closer = std::jthread([&] { runner.Shutdown(); });
        EXPECT_TRUE(support::Eventually([&] { return runner.Start(Shell("true"), outcomes_.As("late")) == 0; }));
        return outcomes_.As("a");
    });
    EXPECT_FALSE(ran.outcome);
    EXPECT_NE(ran.id, 0U);
    closer.join();
    EXPECT_EQ(outcomes_.Of("a").end, End::kStopped);
}

// A pipe holds less: the command ends only if somebody reads.
TEST_F(RunnerTest, LetsACommandWriteMoreThanAPipeHolds) {
    const auto outcome = Make(1).Run(Shell("head -c 1000000 /dev/zero | tr '\\0' x", 30s), Keep).outcome;
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->end, End::kExited);
    EXPECT_EQ(outcome->output.out, std::string(CommandOutput::kMaxOutput, 'x'));
}

TEST_F(RunnerTest, EndsACommandOfTheCallerWhenItsLimitPasses) {
    const auto outcome = Make(1).Run(Shell(Sleeper("a"), 500ms), Keep).outcome;
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->end, End::kTimeLimit);
    const pid_t background = PidOf("a");
    EXPECT_TRUE(support::Eventually([&] { return !support::IsAlive(background); }));
}

TEST_F(RunnerTest, EndsTheWholeGroupWhenTheLimitPasses) {
    Make(1).Start(Shell(Sleeper("a"), 500ms), outcomes_.As("a"));
    const pid_t background = PidOf("a");
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("a").end, End::kTimeLimit);
    EXPECT_TRUE(support::Eventually([&] { return !support::IsAlive(background); }));
}

TEST_F(RunnerTest, KillsACommandThatDoesNotHearItsEnd) {
    Make(1, 100ms).Start(Shell(Sleeper("a", "trap '' TERM; "), 500ms), outcomes_.As("a"));
    const pid_t background = PidOf("a");
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("a").end, End::kTimeLimit);
    EXPECT_TRUE(support::Eventually([&] { return !support::IsAlive(background); }));
}

TEST_F(RunnerTest, LetsACommandTidyUpWhenItIsEnded) {
    CommandRunner& runner = Make(1);
    const auto id = runner.Start(Shell(Sleeper("a", "trap 'echo tidy; exit 0' TERM; ")), outcomes_.As("a"));
    (void)PidOf("a");
    runner.Stop(id);
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("a").end, End::kStopped);
    EXPECT_EQ(outcomes_.Of("a").output.out, "tidy\n");
}

TEST_F(RunnerTest, EndsACommandThatIsHeld) {
    CommandRunner& runner = Make(1, 1h);
    const auto id = runner.Start(Shell("echo $$ >'" + folder_ / "a" + "'; kill -STOP $$"), outcomes_.As("a"));
    const pid_t held = PidOf("a");
    ASSERT_TRUE(support::Eventually([&] { return support::StateOf(held) == 'T'; }));
    runner.Stop(id);
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("a").end, End::kStopped);
}

TEST_F(RunnerTest, TakesAStoppedCommandOutOfTheQueue) {
    CommandRunner& runner = Make(1);
    runner.Start(Shell(Sleeper("a")), outcomes_.As("a"));
    const auto waiting = runner.Start(Shell("touch '" + folder_ / "started" + "'"), outcomes_.As("b"));
    runner.Stop(waiting);
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("b").end, End::kStopped);
    EXPECT_EQ(outcomes_.Of("b").code, 0);
    runner.Shutdown();
    EXPECT_FALSE(std::filesystem::exists(folder_ / "started"));
}

TEST_F(RunnerTest, CountsTheTimeOfWaitingIntoTheLimit) {
    CommandRunner& runner = Make(1);
    runner.Start(Shell(Sleeper("a")), outcomes_.As("a"));
    runner.Start(Shell("true", 100ms), outcomes_.As("b"));
    ASSERT_TRUE(outcomes_.Wait(1));
    EXPECT_EQ(outcomes_.Of("b").end, End::kNeverStarted);
}

TEST_F(RunnerTest, WithholdsAnOutcomeUntilItMayBeTold) {
    CommandRunner& runner = Make(2);
    auto early = Shell("true");
    early.settle = 1s;
    runner.Start(early, outcomes_.As("a"));
    runner.Start(Shell("true"), outcomes_.As("b"));
    ASSERT_TRUE(outcomes_.Wait(2));
    EXPECT_EQ(outcomes_.Order(), "ba");
}

TEST_F(RunnerTest, FreesThePlaceOfACommandWhoseOutcomeIsWithheld) {
    CommandRunner& runner = Make(1);
    auto early = Shell("true");
    early.settle = 1s;
    runner.Start(early, outcomes_.As("a"));
    runner.Start(Shell("true"), outcomes_.As("b"));
    ASSERT_TRUE(outcomes_.Wait(2));
    EXPECT_EQ(outcomes_.Order(), "ba");
}

TEST_F(RunnerTest, IgnoresAStopForACommandThatIsGone) {
    CommandRunner& runner = Make(1);
    const auto id = runner.Start(Shell("true"), outcomes_.As("a"));
    ASSERT_TRUE(outcomes_.Wait(1));
    runner.Stop(id);
    runner.Stop(4711);
    runner.Start(Shell("true"), outcomes_.As("b"));
    ASSERT_TRUE(outcomes_.Wait(2));
    EXPECT_EQ(outcomes_.Of("b").end, End::kExited);
}

TEST_F(RunnerTest, TellsEveryCommandBeforeItsShutdownReturns) {
    CommandRunner& runner = Make(2, 100ms);
    runner.Start(Shell(Sleeper("a")), outcomes_.As("a"));
    runner.Start(Shell(Sleeper("b", "trap '' TERM; ")), outcomes_.As("b"));
    runner.Start(Shell("true"), outcomes_.As("c"));
    const pid_t first = PidOf("a");
    const pid_t second = PidOf("b");
    runner.Shutdown();
    ASSERT_EQ(outcomes_.Count(), 3U);
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_EQ(outcomes_.Of(name).end, End::kStopped) << name;
    }
    EXPECT_TRUE(support::Eventually([&] { return !support::IsAlive(first) && !support::IsAlive(second); }));
}

TEST_F(RunnerTest, GivesUpACommandThatNothingEndsWhenItShutsDown) {
    CommandRunner runner({.maxParallel = 1, .termGrace = 10ms, .abandonGrace = 100ms});
    runner.Start(Shell("echo $$ >'" + folder_ / "a" + "'; exec sleep 1000"), outcomes_.As("a"));
    const pid_t hung = PidOf("a");
    ASSERT_GT(hung, 1);
    g_isDeaf = true;
    runner.Shutdown();
    g_isDeaf = false;
    EXPECT_EQ(outcomes_.Of("a").end, End::kStopped);
    EXPECT_EQ(outcomes_.Of("a").code, 0);
    EXPECT_EQ(g_unheardKills, 2) << "once in time, and once more when it is given up";
    EXPECT_EQ(waitpid(hung, nullptr, WNOHANG), 0) << "it still runs";
    EXPECT_EQ(kill(hung, SIGKILL), 0);
    EXPECT_EQ(waitpid(hung, nullptr, 0), hung);
}

TEST_F(RunnerTest, StopsTheCommandsOfItsCallersBeforeItsShutdownReturns) {
    CommandRunner& runner = Make(1, 100ms);
    std::mutex mutex;
    std::vector<std::optional<CommandOutcome>> told;
    const auto run = [&](const std::string& script) {
        return std::jthread([&, script] {
            auto outcome = runner.Run(Shell(script), Keep).outcome;
            const std::lock_guard lock(mutex);
            told.push_back(std::move(outcome));
        });
    };
    const std::string leader = folder_ / "leader";
    const auto deaf = run(Sleeper("a", "trap '' TERM; echo $$ >'" + leader + "'; "));
    const auto ordinary = run(Sleeper("b"));
    const pid_t first = PidOf("a");
    const pid_t second = PidOf("b");
    runner.Shutdown();
    EXPECT_FALSE(support::IsAlive(PidOf("leader"))) << "its caller is still in Run";
    EXPECT_TRUE(support::Eventually([&] { return !support::IsAlive(first) && !support::IsAlive(second); }));
    EXPECT_TRUE(support::Eventually([&] {
        const std::lock_guard lock(mutex);
        return told.size() == 2;
    }));
    for (const auto& outcome : told) {
        ASSERT_TRUE(outcome);
        EXPECT_EQ(outcome->end, End::kStopped);
    }
}

TEST_F(RunnerTest, TakesNothingOnceItShutsDown) {
    CommandRunner& runner = Make(1);
    runner.Shutdown();
    EXPECT_EQ(runner.Start(Shell("true"), outcomes_.As("a")), 0U);
    const auto ran = runner.Run(Shell("true"), Keep);
    EXPECT_FALSE(ran.outcome);
    EXPECT_EQ(ran.id, 0U);
    runner.Shutdown();
    EXPECT_EQ(outcomes_.Count(), 0U);
}

}  // namespace
