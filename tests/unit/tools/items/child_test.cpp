// A running command: what it sees, what is taken from it, how it ends.
#include "items/child.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/eventually.h"
#include "support/process_state.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::items;
using End = CommandOutcome::End;

namespace {

// For what the command is to have as its output.
bool g_noMemoryForSettings = false;

}  // namespace

// In the place of the C library's.
extern "C" int posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int from, int to) noexcept {
    using Function = int (*)(posix_spawn_file_actions_t*, int, int);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "posix_spawn_file_actions_adddup2"));
    return g_noMemoryForSettings ? ENOMEM : real(actions, from, to);
}

namespace {

CommandSpec Spec(std::vector<std::string> argv) {
    CommandSpec spec;
    spec.argv = std::move(argv);
    return spec;
}

CommandSpec Shell(const std::string& script) {
    return Spec({"/bin/sh", "-c", script});
}

// Reads the output and waits for the end as a supervisor does.
CommandOutcome Finish(Child& child) {
    std::optional<CommandOutcome> outcome;
    EXPECT_TRUE(support::Eventually([&] {
        child.ReadOutput();
        outcome = child.Reap();
        return outcome.has_value();
    }));
    return outcome.value_or(CommandOutcome{});
}

CommandOutcome RunToEnd(const CommandSpec& spec) {
    auto child = Child::Start(spec);
    if (!child) {
        return {End::kNotStarted, child.Failure().number, {}};
    }
    return Finish(*child);
}

TEST(ChildTest, GivesExitStatusAndBothOutputs) {
    const auto outcome = RunToEnd(Shell("echo out; echo err >&2; exit 2"));
    EXPECT_EQ(outcome.end, End::kExited);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.output.out, "out\n");
    EXPECT_EQ(outcome.output.err, "err\n");
}

TEST(ChildTest, GivesTheSignalThatEndedIt) {
    const auto outcome = RunToEnd(Shell("kill -SEGV $$"));
    EXPECT_EQ(outcome.end, End::kSignalled);
    EXPECT_EQ(outcome.code, 11);
}

TEST(ChildTest, HandsArgumentsOnUnchanged) {
    const auto outcome = RunToEnd(Spec({"/usr/bin/printf", "%s|", "a b", "", "$HOME; `id`", "\xFF"}));
    EXPECT_EQ(outcome.output.out, "a b||$HOME; `id`|\xFF|");
}

TEST(ChildTest, SeesItsItemAndArgumentInTheEnvironment) {
    (void)setenv("INSPECT_CMD", "of the owner itself", 1);
    (void)setenv("CHILD_TEST", "handed on", 1);
    auto spec = Shell("echo \"$INSPECT_ITEM|$INSPECT_CMD|$CHILD_TEST\"");
    spec.item = "conf_sip_ft";
    spec.argument = "a \"b\" $(id)";
    EXPECT_EQ(RunToEnd(spec).output.out, "conf_sip_ft|a \"b\" $(id)|handed on\n");
    spec.argv = {"/bin/grep", "-z", "-c", "^INSPECT_", "/proc/self/environ"};
    EXPECT_EQ(RunToEnd(spec).output.out, "2\n") << "each stands there once";
    (void)unsetenv("INSPECT_CMD");
    (void)unsetenv("CHILD_TEST");
}

TEST(ChildTest, HasAnEmptyInput) {
    const support::TempFolder folder;
    support::WriteFile(folder / "input", "of the owner itself");
    const UniqueFd former(dup(STDIN_FILENO));
    const UniqueFd input(open((folder / "input").c_str(), O_RDONLY));
    ASSERT_EQ(dup2(input.Get(), STDIN_FILENO), STDIN_FILENO);
    const auto outcome = RunToEnd(Spec({"/bin/cat"}));
    EXPECT_EQ(dup2(former.Get(), STDIN_FILENO), STDIN_FILENO);
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output.out, "");
}

TEST(ChildTest, InheritsNoOtherDescriptor) {
    const UniqueFd lowest(fcntl(STDERR_FILENO, F_DUPFD, 3));
    const UniqueFd high(fcntl(STDERR_FILENO, F_DUPFD, 100));
    ASSERT_TRUE(lowest && high);
    // 3 is the folder that ls itself reads.
    EXPECT_EQ(RunToEnd(Spec({"/bin/ls", "/proc/self/fd"})).output.out, "0\n1\n2\n3\n");
}

TEST(ChildTest, StartsWithDefaultSignals) {
    sigset_t set{};
    sigset_t former{};
    (void)sigemptyset(&set);
    (void)sigaddset(&set, SIGTERM);
    (void)sigaddset(&set, SIGUSR1);
    (void)pthread_sigmask(SIG_BLOCK, &set, &former);
    const auto formerPipe = std::signal(SIGPIPE, SIG_IGN);
    const auto blocked = RunToEnd(Spec({"/bin/grep", "^SigBlk", "/proc/self/status"}));
    const auto ignored = RunToEnd(Spec({"/bin/grep", "^SigIgn", "/proc/self/status"}));
    (void)std::signal(SIGPIPE, formerPipe);
    (void)pthread_sigmask(SIG_SETMASK, &former, nullptr);
    EXPECT_EQ(blocked.output.out, "SigBlk:\t0000000000000000\n");
    // 32 and 33 are the C library's own.
    const std::uint64_t own = 0x180000000;
    ASSERT_TRUE(ignored.output.out.starts_with("SigIgn:\t"));
    EXPECT_EQ(std::stoull(ignored.output.out.substr(8), nullptr, 16) & ~own, 0U);
}

TEST(ChildTest, LeadsAGroupOfItsOwn) {
    const auto outcome = RunToEnd(Shell("ps -o pid=,pgid= -p $$ | awk '{print ($1 == $2)}'"));
    EXPECT_EQ(outcome.output.out, "1\n") << outcome.output.err;
}

TEST(ChildTest, ThatWritesMuchIsReadToItsEndAndCutTo4096Bytes) {
    const auto outcome = RunToEnd(Spec({"/usr/bin/head", "-c", "3000000", "/dev/zero"}));
    EXPECT_EQ(outcome.end, End::kExited);
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output.out.size(), 4096U);
}

TEST(ChildTest, IsOverWithItsLeaderAndTakesBackgroundProcessesWithIt) {
    const auto outcome = RunToEnd(Shell("sleep 1000 & echo $!"));
    EXPECT_EQ(outcome.end, End::kExited);
    EXPECT_EQ(outcome.code, 0);
    const pid_t background = std::stoi(outcome.output.out);
    EXPECT_TRUE(support::Eventually([&] { return !support::IsAlive(background); }));
}

TEST(ChildTest, IsEndedWithItsObject) {
    auto started = Child::Start(Shell("echo $$; sleep 1000"));
    ASSERT_TRUE(started);
    std::optional<Child> child(std::move(*started));
    pollfd out{child->OutFd(), POLLIN, 0};
    ASSERT_EQ(poll(&out, 1, 30000), 1);
    char text[32] = {};
    ASSERT_GT(read(child->OutFd(), text, sizeof text - 1), 0);
    child.reset();
    EXPECT_TRUE(support::Eventually([&] { return !support::IsAlive(std::atoi(text)); }));
}

// Else it would be readable for ever, and its supervisor never rest.
TEST(ChildTest, IsNotReadAnyMoreOnceItHasClosedItsOutput) {
    auto child = Child::Start(Shell("exec >&- 2>&-; exec sleep 1000"));
    ASSERT_TRUE(child);
    EXPECT_TRUE(support::Eventually([&] {
        child->ReadOutput();
        return child->OutFd() == -1 && child->ErrFd() == -1;
    }));
    EXPECT_FALSE(child->Reap());
}

TEST(ChildTest, ThatCannotBeGivenItsDescriptorsIsNotStarted) {
    g_noMemoryForSettings = true;
    const auto outcome = RunToEnd(Shell("true"));
    g_noMemoryForSettings = false;
    EXPECT_EQ(outcome.end, End::kNotStarted);
    EXPECT_EQ(outcome.code, ENOMEM);
}

TEST(ChildTest, ThatCannotBeWatchedIsEndedAtOnce) {
    while (waitpid(-1, nullptr, 0) > 0) {  // those of other tests
    }
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    UniqueFd next(dup(STDIN_FILENO));
    const rlimit tight{static_cast<rlim_t>(next.Get()) + 4, before.rlim_max};  // its two pipes, and no more
    next.Reset();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    const auto child = Child::Start(Spec({"/bin/sleep", "1000"}));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    ASSERT_FALSE(child);
    EXPECT_EQ(child.Failure().number, EMFILE);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "nothing is left of it";
    EXPECT_EQ(errno, ECHILD);
}

TEST(ChildTest, ThatDoesNotExistIsNotStarted) {
    const auto outcome = RunToEnd(Spec({"/nonexistent/check"}));
    EXPECT_EQ(outcome.end, End::kNotStarted);
    EXPECT_EQ(outcome.code, ENOENT);
}

class ChildFileTest : public testing::Test {
protected:
    ChildFileTest() { support::WriteFile(path_, "echo never\n"); }

    const support::TempFolder folder_;
    const std::string path_ = folder_ / "check";
};

TEST_F(ChildFileTest, WithoutPermissionIsNotStarted) {
    const auto outcome = RunToEnd(Spec({path_}));
    EXPECT_EQ(outcome.end, End::kNotStarted);
    EXPECT_EQ(outcome.code, EACCES);
}

TEST_F(ChildFileTest, ThatIsNoProgramIsNotHandedToAShell) {
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
    const auto outcome = RunToEnd(Spec({path_}));
    EXPECT_EQ(outcome.end, End::kNotStarted);
    EXPECT_EQ(outcome.code, ENOEXEC);
}

}  // namespace
